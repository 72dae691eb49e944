// The report comes in parts, the most telling first, each written before the next is worked out: if the process is so
// broken that a later part fails, the earlier ones are on the disk. Nothing of it takes memory or locks. Addresses are
// written as module and offset, which tools turn into functions and lines (addr2line -e MODULE OFFSET).
#include "engine/platform/crash.h"

#include <cxxabi.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <time.h>
#include <unwind.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <iterator>
#include <memory>
#include <string_view>
#include <utility>

#include "engine/platform/linux/process.h"
#include "engine/platform/posix/system.h"
#include "engine/platform/text.h"
#include "engine/platform/threads.h"

namespace platform {

struct CrashContext {
    int signal_number = 0;
    const siginfo_t* info = nullptr;
    const void* context = nullptr;  // ucontext_t
};

namespace {

constexpr int most_frames = 128;

constexpr std::pair<int, std::string_view> crash_signals[] = {
    {SIGSEGV, "SIGSEGV, an access to memory that is not there"},
    {SIGBUS, "SIGBUS, an access that the memory cannot serve"},
    {SIGILL, "SIGILL, an illegal instruction"},
    {SIGFPE, "SIGFPE, an arithmetic fault"},
    {SIGABRT, "SIGABRT, the process gave up"},
    {SIGTRAP, "SIGTRAP, a breakpoint"},
    {SIGSYS, "SIGSYS, a forbidden system call"},
};
/// Of a signal that is none of these (a host may hand on any) that of the last.
std::size_t index_of(int signal_number) {
    std::size_t at = 0;
    while (at + 1 < std::size(crash_signals) && crash_signals[at].first != signal_number) ++at;
    return at;
}

/// The report's file; remembers why a write failed.
class Report {
public:
    explicit Report(const char* path) : file_(open(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0666)) {
        if (!file_.valid()) failure_ = failure_of(errno);
    }
    Failure failure() const { return failure_; }

    void write(std::string_view text) {
        while (!text.empty() && failure_ == Failure::NONE) {
            const auto done = retry_interrupted([&] { return ::write(file_.number(), text.data(), text.size()); });
            if (done <= 0) failure_ = done < 0 ? failure_of(errno) : Failure::DISK_FULL;
            if (done > 0) text.remove_prefix(static_cast<std::size_t>(done));
        }
    }

private:
    const Descriptor file_;
    Failure failure_ = Failure::NONE;
};

void write_head(Report& report, const CrashContext* crash) {
    char buffer[512];
    BoundedText text(buffer);
    if (crash == nullptr) {
        text.add("Report of a running process\n");
    } else {
        text.add("Crash report\nSignal: ").add_number(static_cast<unsigned>(crash->signal_number)).add(" (");
        text.add(crash_signals[index_of(crash->signal_number)].second).add(")\n");
        text.add("Code: ").add_number(static_cast<std::uint32_t>(crash->info->si_code));
        text.add("\nAddress: ").add_hex(reinterpret_cast<std::uintptr_t>(crash->info->si_addr)).add("\n");
    }
    text.add("Process: ").add_number(getpid()).add("\nThread: ").add_number(current_thread_id()).add("\n");
    report.write(text.view());
}

void write_registers(Report& report, const CrashContext& crash) {
    Register registers[most_registers];
    const int count = read_registers(crash.context, registers);
    report.write("\nRegisters\n");
    for (int i = 0; i < count; ++i) {
        char buffer[64];
        BoundedText text(buffer);
        text.add("  ").add(registers[i].name).add(registers[i].name.size() == 2 ? "  " : " ");
        report.write(text.add_hex(registers[i].value, 16).add("\n").view());
    }
}

/// By the modules that were noted: the loader is not asked in a broken process.
void write_noted_frame(Report& report, std::uintptr_t address) {
    char buffer[128];
    BoundedText text(buffer);
    text.add("  ").add_hex(address, 16);
    if (const CodeFile* const file = find_code_file(address)) {
        text.add(" ").add(file->name).add("+").add_hex(address - file->base);
    }
    report.write(text.add("\n").view());
}

void write_back_trace(Report& report, const CrashContext* crash) {
    report.write("\nBack-trace, innermost first\n");
    void* frames[most_frames];
    void** const end = frames + capture_stack(frames, most_frames, 1);
    if (crash == nullptr) {
        for (void** at = frames; at != end; ++at) {
            char text[512];
            describe_frame(*at, text, sizeof text);
            report.write("  ");
            report.write(text);
            report.write("\n");
        }
        return;
    }
    // Frames of the handler itself stand before the place of the crash; they are left out when that place is found.
    Register registers[most_registers];
    const auto place = read_registers(crash->context, registers) != 0 ? std::uintptr_t{registers[0].value} : 0;
    void** const found = std::find(frames, end, reinterpret_cast<void*>(place));
    write_noted_frame(report, place);
    std::for_each(found == end ? frames : found + 1, end,
                  [&](const void* at) { write_noted_frame(report, reinterpret_cast<std::uintptr_t>(at)); });
}

void write_log(Report& report, const DumpRequest& request) {
    if (request.write_log == nullptr) return;
    report.write("\nLast log lines\n");
    request.write_log(
        [](const char* text, std::size_t length, void* user) {
            static_cast<Report*>(user)->write({text, length});
        },
        &report);
    report.write("\n");
}

struct Walk {
    void** frames;
    int capacity;
    int skip;
    int count = 0;
};

_Unwind_Reason_Code take_frame(_Unwind_Context* context, void* user) {
    Walk& walk = *static_cast<Walk*>(user);
    if (walk.count == walk.capacity) return _URC_END_OF_STACK;
    const std::uintptr_t address = _Unwind_GetIP(context);
    if (address != 0 && walk.skip-- <= 0) walk.frames[walk.count++] = reinterpret_cast<void*>(address);
    return _URC_NO_REASON;
}

constexpr int most_levels = 8;
constexpr std::size_t stack_size = 256 * 1024;  // only what a handler touches takes memory

/// What was there before us, the oldest first: more than one where the host put a handler of its own above ours and then
/// asked for ours again. The host's handler may call ours, so that one crash passes here once for each level.
struct Chain {
    struct sigaction previous[most_levels];
    int count = 0;
    int passed = 0;  // by the reporting thread
};

struct HandlerState {
    std::atomic<CrashHandler> handler{nullptr};
    std::atomic<std::uint64_t> reporter{0};  // the thread that crashed first; one report for one process
    std::atomic<bool> is_writing{false};
    Chain chains[std::size(crash_signals)];
};
HandlerState state;

Chain& chain_of(int signal_number) { return state.chains[index_of(signal_number)]; }

/// A fault comes again when the handler returns to it; everything else has to be sent again.
bool comes_again(int signal_number, const siginfo_t& info) {
    const bool is_fault =
        signal_number == SIGSEGV || signal_number == SIGBUS || signal_number == SIGILL || signal_number == SIGFPE;
    return is_fault && info.si_code > 0;
}

/// Leaves the crash to whoever was there before, in the end to the system.
void pass_on(int signal_number, const siginfo_t& info, bool is_reporter) {
    Chain& chain = chain_of(signal_number);
    const int level = chain.count - 1 - (is_reporter ? chain.passed++ : 0);
    struct sigaction system_default {};
    system_default.sa_handler = SIG_DFL;
    sigaction(signal_number, level >= 0 ? &chain.previous[level] : &system_default, nullptr);
    if (!comes_again(signal_number, info)) raise(signal_number);  // delivered when this handler returns
}

/// Another thread crashed while the report is being written: its end would cut the report short.
void wait_for_report() {
    const timespec pause{.tv_sec = 0, .tv_nsec = 10'000'000};
    for (int i = 0; i < 1000 && state.is_writing.load(); ++i) nanosleep(&pause, nullptr);
}

void on_signal(int signal_number, siginfo_t* info, void* context) {
    const int saved_errno = errno;
    const std::uint64_t self = current_thread_id();
    std::uint64_t reporter = 0;
    if (state.reporter.compare_exchange_strong(reporter, self)) {
        state.is_writing.store(true);
        const CrashContext crash{.signal_number = signal_number, .info = info, .context = context};
        if (const CrashHandler handler = state.handler.load()) handler(&crash);
        state.is_writing.store(false);
        reporter = self;
    } else if (reporter != self) {
        wait_for_report();
    }
    errno = saved_errno;
    pass_on(signal_number, *info, reporter == self);
}

bool is_ours(const struct sigaction& action) {
    return (action.sa_flags & SA_SIGINFO) != 0 && action.sa_sigaction == on_signal;
}

bool has_room() {
    return std::ranges::none_of(state.chains, [](const Chain& chain) { return chain.count == most_levels; });
}

}  // namespace

[[gnu::noinline]] int capture_stack(void** frames, int capacity, int skip) {
    Walk walk{.frames = frames, .capacity = capacity, .skip = skip + 1};
    _Unwind_Backtrace(take_frame, &walk);
    return walk.count;
}

void describe_frame(const void* frame, char* out, std::size_t capacity) {
    const auto address = reinterpret_cast<std::uintptr_t>(frame);
    BoundedText text(out, capacity);
    text.add_hex(address, 16);
    Dl_info info{};
    if (dladdr(frame, &info) == 0 || info.dli_fname == nullptr) return;
    const std::string_view path = info.dli_fname;
    text.add(" ").add(path.substr(path.rfind('/') + 1)).add("+");
    text.add_hex(address - reinterpret_cast<std::uintptr_t>(info.dli_fbase));
    if (info.dli_sname == nullptr) return;
    const std::unique_ptr<char, decltype(&std::free)> readable(
        abi::__cxa_demangle(info.dli_sname, nullptr, nullptr, nullptr), std::free);
    text.add(" (").add(readable ? readable.get() : info.dli_sname).add("+");
    text.add_hex(address - reinterpret_cast<std::uintptr_t>(info.dli_saddr)).add(")");
}

Failure write_dump(const DumpRequest& request) {
    Report report(request.path);
    if (report.failure() != Failure::NONE) return report.failure();
    write_head(report, request.crash);
    if (request.crash != nullptr) write_registers(report, *request.crash);
    write_back_trace(report, request.crash);
    report.write("\nMappings\n");
    read_pieces(mappings_file, [&](std::string_view piece) { report.write(piece); });
    write_log(report, request);
    report.write("\nEnd of report\n");
    // Half a report of a crash is better than none; half a report of a healthy process is not.
    if (report.failure() != Failure::NONE && request.crash == nullptr) unlink(request.path);
    return report.failure();
}

const char* dump_ending() { return ".txt"; }

CrashStack::CrashStack() {
    stack_t current{};
    if (sigaltstack(nullptr, &current) != 0 || (current.ss_flags & SS_DISABLE) == 0) return;
    void* const memory = mmap(nullptr, stack_size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) return;
    stack_t stack{};
    stack.ss_sp = memory;
    stack.ss_size = stack_size;
    if (sigaltstack(&stack, nullptr) == 0) {
        memory_ = memory;
    } else {
        munmap(memory, stack_size);
    }
}

CrashStack::~CrashStack() {
    if (memory_ == nullptr) return;
    stack_t none{};
    none.ss_flags = SS_DISABLE;
    sigaltstack(&none, nullptr);
    munmap(memory_, stack_size);
}

void break_into_debugger() { raise(SIGTRAP); }

bool install_crash_handler(CrashHandler handler) {
    CrashHandler none = nullptr;
    if (handler == nullptr || !has_room() || !state.handler.compare_exchange_strong(none, handler)) return false;
    // A broken process can neither ask the loader nor load the unwinder.
    note_code_files();
    void* frame = nullptr;
    capture_stack(&frame, 1, 0);
    CrashStack().keep();
    state.reporter.store(0);
    struct sigaction action {};
    action.sa_sigaction = on_signal;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    sigemptyset(&action.sa_mask);
    for (const auto& [signal_number, name] : crash_signals) {
        Chain& chain = chain_of(signal_number);
        if (sigaction(signal_number, &action, &chain.previous[chain.count]) == 0) ++chain.count;
        chain.passed = 0;
    }
    return true;
}

void remove_crash_handler() {
    if (state.handler.load() == nullptr) return;
    for (const auto& [signal_number, name] : crash_signals) {
        Chain& chain = chain_of(signal_number);
        struct sigaction current {};
        if (sigaction(signal_number, nullptr, &current) != 0 || !is_ours(current) || chain.count == 0) continue;
        sigaction(signal_number, &chain.previous[--chain.count], nullptr);
    }
    state.handler.store(nullptr);
}

}  // namespace platform

// The report, most telling part first, each part written before the next is worked out: if the process is so broken
// that a later part fails, the earlier ones are on the disk. Nothing here takes memory or locks. Addresses are written
// as module and offset, which tools turn into functions and lines (addr2line -e MODULE OFFSET).
#include "engine/platform/posix/crash.h"

#include <cxxabi.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <unwind.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <string_view>
#include <utility>

#include "engine/platform/linux/process.h"
#include "engine/platform/posix/system.h"
#include "engine/platform/text.h"
#include "engine/platform/threads.h"

namespace platform {

namespace {

constexpr int most_frames = 128;

/// The report's file; remembers why a write failed.
class Report {
public:
    explicit Report(const char* path) : file_(open(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0666)) {
        if (!file_.valid()) failure_ = failure_of(errno);
    }
    bool is_open() const { return file_.valid(); }
    Failure failure() const { return failure_; }

    void write(std::string_view text) {
        while (!text.empty() && failure_ == Failure::NONE) {
            const auto done = retry_interrupted([&] { return ::write(file_.number(), text.data(), text.size()); });
            if (done <= 0) failure_ = done < 0 ? failure_of(errno) : Failure::DISK_FULL;
            if (done > 0) text.remove_prefix(static_cast<std::size_t>(done));
        }
    }
    void copy(const char* path) {
        const Descriptor from(open(path, O_RDONLY | O_CLOEXEC));
        char piece[4096];
        while (from.valid()) {
            const auto got = retry_interrupted([&] { return read(from.number(), piece, sizeof(piece)); });
            if (got <= 0) break;
            write({piece, static_cast<std::size_t>(got)});
        }
    }

private:
    const Descriptor file_;
    Failure failure_ = Failure::NONE;
};

std::string_view signal_name(int number) {
    constexpr std::pair<int, std::string_view> names[] = {
        {SIGSEGV, "SIGSEGV, an access to memory that is not there"},
        {SIGBUS, "SIGBUS, an access that the memory cannot serve"},
        {SIGILL, "SIGILL, an illegal instruction"},
        {SIGFPE, "SIGFPE, an arithmetic fault"},
        {SIGABRT, "SIGABRT, the process gave up"},
        {SIGTRAP, "SIGTRAP, a breakpoint"},
        {SIGSYS, "SIGSYS, a forbidden system call"},
    };
    for (const auto& [signal_number, name] : names) {
        if (signal_number == number) return name;
    }
    return "another signal";
}

void write_head(Report& report, const CrashContext* crash) {
    char buffer[512];
    BoundedText text(buffer);
    if (crash == nullptr) {
        text.add("Report of a running process\n");
    } else {
        text.add("Crash report\nSignal: ").add_number(static_cast<unsigned>(crash->signal_number)).add(" (");
        text.add(signal_name(crash->signal_number)).add(")\n");
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

void write_frame(Report& report, const void* frame) {
    char text[512];
    describe_frame(frame, text, sizeof(text));
    report.write("  ");
    report.write(text);
    report.write("\n");
}

void write_back_trace(Report& report, const CrashContext* crash) {
    report.write("\nBack-trace, innermost first\n");
    void* frames[most_frames];
    void** const end = frames + capture_stack(frames, most_frames, 1);
    if (crash == nullptr) {
        std::for_each(frames, end, [&](const void* at) { write_frame(report, at); });
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

void prepare_reports() {
    note_code_files();
    void* frame = nullptr;
    capture_stack(&frame, 1, 0);
}

Failure write_dump(const DumpRequest& request) {
    Report report(request.path);
    if (!report.is_open()) return report.failure();
    write_head(report, request.crash);
    if (request.crash != nullptr) write_registers(report, *request.crash);
    write_back_trace(report, request.crash);
    report.write("\nMappings\n");
    report.copy(mappings_file);
    write_log(report, request);
    report.write("\nEnd of report\n");
    // Half a report of a crash is better than none; half a report of a healthy process is not.
    if (report.failure() != Failure::NONE && request.crash == nullptr) unlink(request.path);
    return report.failure();
}

const char* dump_ending() { return ".txt"; }

}  // namespace platform

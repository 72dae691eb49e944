// The report, most telling part first, each part written before the next is worked out: if the process is so broken
// that a later part fails, the earlier ones are on the disk.
#include "engine/platform/posix/crash/report.h"

#include <execinfo.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include "engine/platform/posix/crash/context.h"
#include "engine/platform/posix/crash/maps_reader.h"
#include "engine/platform/posix/crash/symbols.h"
#include "engine/platform/posix/crash/text.h"

namespace platform {

namespace {

constexpr int most_frames = 128;

/// The report's file; remembers whether a write failed.
class Report {
public:
    explicit Report(const char* path) : file_(open(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0666)) {}
    ~Report() {
        if (file_ >= 0) close(file_);
    }
    Report(const Report&) = delete;
    Report& operator=(const Report&) = delete;

    bool is_open() const { return file_ >= 0; }
    bool is_good() const { return good_; }
    void write(const char* text, std::size_t length) { good_ = write_fully(file_, text, length) && good_; }
    void write(const char* text) { write(text, std::strlen(text)); }
    void write(const FixedText& text) { write(text.text(), text.size()); }

private:
    int file_;
    bool good_ = true;
};

const char* signal_name(int number) {
    switch (number) {
        case SIGSEGV:
            return "SIGSEGV, an access to memory that is not there";
        case SIGBUS:
            return "SIGBUS, an access that the memory cannot serve";
        case SIGILL:
            return "SIGILL, an illegal instruction";
        case SIGFPE:
            return "SIGFPE, an arithmetic fault";
        case SIGABRT:
            return "SIGABRT, the process gave up";
        case SIGTRAP:
            return "SIGTRAP, a breakpoint";
        case SIGSYS:
            return "SIGSYS, a forbidden system call";
        default:
            return "another signal";
    }
}

void write_head(Report& report, const CrashContext* crash) {
    char buffer[512];
    FixedText text(buffer, sizeof(buffer));
    if (crash == nullptr) {
        text.add("Report of a running process\n");
    } else {
        text.add("Crash report\nSignal: ").add_number(static_cast<unsigned>(crash->signal_number)).add(" (");
        text.add(signal_name(crash->signal_number)).add(")\n");
        text.add("Code: ").add_number(static_cast<std::uint32_t>(crash->info->si_code));
        text.add("\nAddress: ").add_hex(reinterpret_cast<std::uintptr_t>(crash->info->si_addr)).add("\n");
    }
    text.add("Process: ").add_number(static_cast<std::uint64_t>(getpid()));
    text.add("\nThread: ").add_number(static_cast<std::uint64_t>(syscall(SYS_gettid))).add("\n");
    report.write(text);
}

struct RegisterName {
    const char* name;
    int index;
};
constexpr RegisterName registers[] = {
    {"rip", REG_RIP}, {"rsp", REG_RSP}, {"rbp", REG_RBP}, {"rax", REG_RAX}, {"rbx", REG_RBX}, {"rcx", REG_RCX},
    {"rdx", REG_RDX}, {"rsi", REG_RSI}, {"rdi", REG_RDI}, {"r8 ", REG_R8},  {"r9 ", REG_R9},  {"r10", REG_R10},
    {"r11", REG_R11}, {"r12", REG_R12}, {"r13", REG_R13}, {"r14", REG_R14}, {"r15", REG_R15}, {"efl", REG_EFL},
};

std::uint64_t register_value(const CrashContext& crash, int index) {
    return static_cast<std::uint64_t>(crash.context->uc_mcontext.gregs[index]);
}

void write_registers(Report& report, const CrashContext& crash) {
    report.write("\nRegisters\n");
    for (const RegisterName& item : registers) {
        char buffer[64];
        report.write(FixedText(buffer, sizeof(buffer))
                         .add("  ")
                         .add(item.name)
                         .add(" ")
                         .add_hex(register_value(crash, item.index), 16)
                         .add("\n"));
    }
}

void write_frame(Report& report, std::uintptr_t address, bool is_return) {
    char line[512];
    describe_address(address, is_return, line, sizeof(line));
    report.write("  ");
    report.write(line);
    report.write("\n");
}

/// Frames of the handler itself stand before the place of the crash; they are left out when that place is found.
int first_frame_of_interest(void* const* frames, int count, std::uint64_t crashed_at) {
    for (int i = 0; i < count; ++i) {
        if (reinterpret_cast<std::uintptr_t>(frames[i]) == crashed_at) return i + 1;
    }
    return 0;
}

void write_back_trace(Report& report, const CrashContext* crash) {
    report.write("\nBack-trace, innermost first\n");
    int first = 2;  // this function and its caller
    const std::uint64_t crashed_at = crash == nullptr ? 0 : register_value(*crash, REG_RIP);
    if (crash != nullptr) write_frame(report, crashed_at, false);
    void* frames[most_frames];
    const int count = backtrace(frames, most_frames);
    if (crash != nullptr) first = first_frame_of_interest(frames, count, crashed_at);
    for (int i = first; i < count; ++i) write_frame(report, reinterpret_cast<std::uintptr_t>(frames[i]), true);
}

void write_modules(Report& report, bool full) {
    report.write(full ? "\nMappings\n" : "\nModules\n");
    MapsReader maps;
    Mapping mapping;
    while (maps.next(mapping)) {
        if (!full && (!mapping.is_executable || mapping.path[0] != '/')) continue;
        report.write("  ");
        report.write(maps.line());
        report.write("\n");
    }
}

void write_log(Report& report, const DumpRequest& request) {
    if (request.write_log == nullptr) return;
    report.write("\nLast log lines\n");
    request.write_log(
        [](const char* text, std::size_t length, void* user) { static_cast<Report*>(user)->write(text, length); },
        &report);
    report.write("\n");
}

}  // namespace

bool write_report(const DumpRequest& request) {
    Report report(request.path);
    if (!report.is_open()) return false;
    write_head(report, request.crash);
    if (request.crash != nullptr) write_registers(report, *request.crash);
    write_back_trace(report, request.crash);
    write_modules(report, request.full);
    write_log(report, request);
    report.write("\nEnd of report\n");
    // Half a report of a crash is better than none; half a report of a healthy process is not.
    if (!report.is_good() && request.crash == nullptr) unlink(request.path);
    return report.is_good();
}

}  // namespace platform

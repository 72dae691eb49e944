// Crashes on Linux: the handler's chain, and the report. The report's own parts are in report.cpp, which uses
// nothing but system calls, since a broken process has no memory and no locks to offer.
#include "engine/platform/crash.h"

#include <execinfo.h>
#include <pthread.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>

#include "engine/platform/posix/crash/alternate_stack.h"
#include "engine/platform/posix/crash/context.h"
#include "engine/platform/posix/crash/report.h"
#include "engine/platform/posix/crash/symbols.h"

namespace platform {

namespace {

constexpr int crash_signals[] = {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT, SIGTRAP, SIGSYS};
constexpr int crash_signal_count = sizeof(crash_signals) / sizeof(crash_signals[0]);

struct HandlerState {
    std::atomic<CrashHandler> handler{nullptr};
    std::atomic<bool> reported{false};  // one report for one process
    std::atomic<bool> writing{false};
    struct sigaction previous[crash_signal_count];
};
HandlerState state;

int index_of(int signal_number) {
    for (int i = 0; i < crash_signal_count; ++i) {
        if (crash_signals[i] == signal_number) return i;
    }
    return -1;
}

/// A fault comes again when the handler returns to it; everything else has to be sent again.
bool comes_again(int signal_number, const siginfo_t& info) {
    const bool is_fault =
        signal_number == SIGSEGV || signal_number == SIGBUS || signal_number == SIGILL || signal_number == SIGFPE;
    return is_fault && info.si_code > 0;
}

/// Leaves the crash to whoever was there before, in the end to the system.
void pass_on(int signal_number, const siginfo_t& info) {
    const int index = index_of(signal_number);
    if (index >= 0) sigaction(signal_number, &state.previous[index], nullptr);
    if (!comes_again(signal_number, info)) raise(signal_number);  // delivered when this handler returns
}

/// Another thread crashed while the report is being written: its end would cut the report short.
void wait_for_report() {
    const timespec pause{.tv_sec = 0, .tv_nsec = 10'000'000};
    for (int i = 0; i < 1000 && state.writing.load(); ++i) nanosleep(&pause, nullptr);
}

void on_signal(int signal_number, siginfo_t* info, void* context) {
    const int saved_errno = errno;
    if (!state.reported.exchange(true)) {
        state.writing.store(true);
        const CrashContext crash{
            .signal_number = signal_number, .info = info, .context = static_cast<ucontext_t*>(context)};
        if (const CrashHandler handler = state.handler.load()) handler(&crash);
        state.writing.store(false);
    } else {
        wait_for_report();
    }
    errno = saved_errno;
    pass_on(signal_number, *info);
}

bool is_ours(const struct sigaction& action) {
    return (action.sa_flags & SA_SIGINFO) != 0 && action.sa_sigaction == on_signal;
}

}  // namespace

void break_into_debugger() { raise(SIGTRAP); }

[[gnu::noinline]] int capture_stack(void** frames, int capacity, int skip) {
    constexpr int most_frames = 128;
    void* all[most_frames];
    const int count = backtrace(all, most_frames);
    // Tools that stand between us and the system add frames of their own; ours end where this function returns to.
    int first = 1;
    for (int i = 0; i < count; ++i) {
        if (all[i] == __builtin_return_address(0)) first = i;
    }
    int used = 0;
    for (int i = first + skip; i < count && used < capacity; ++i) frames[used++] = all[i];
    return used;
}

void describe_frame(const void* frame, char* out, std::size_t capacity) {
    describe_address(reinterpret_cast<std::uintptr_t>(frame), true, out, capacity);
}

bool write_dump(const DumpRequest& request) { return write_report(request); }
const char* dump_ending() { return ".txt"; }

bool install_crash_handler(CrashHandler handler) {
    CrashHandler none = nullptr;
    if (handler == nullptr || !state.handler.compare_exchange_strong(none, handler)) return false;
    // The first back-trace of a process loads a library; that must not happen in the handler.
    void* frame = nullptr;
    backtrace(&frame, 1);
    AlternateStack().keep();
    state.reported.store(false);
    struct sigaction action {};
    action.sa_sigaction = on_signal;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    sigemptyset(&action.sa_mask);
    for (int i = 0; i < crash_signal_count; ++i) sigaction(crash_signals[i], &action, &state.previous[i]);
    return true;
}

void remove_crash_handler() {
    if (state.handler.load() == nullptr) return;
    for (int i = 0; i < crash_signal_count; ++i) {
        struct sigaction current {};
        if (sigaction(crash_signals[i], nullptr, &current) != 0 || !is_ours(current)) continue;
        sigaction(crash_signals[i], &state.previous[i], nullptr);
    }
    state.handler.store(nullptr);
}

}  // namespace platform

// Crashes: the handler and its chain. What the report holds is in report.cpp.
#include <sys/mman.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <iterator>

#include "engine/platform/posix/crash.h"
#include "engine/platform/threads.h"

namespace platform {

namespace {

constexpr int crash_signals[] = {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT, SIGTRAP, SIGSYS};
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

Chain& chain_of(int signal_number) {
    return state.chains[std::find(crash_signals, std::end(crash_signals) - 1, signal_number) - crash_signals];
}

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
    prepare_reports();
    CrashStack().keep();
    state.reporter.store(0);
    struct sigaction action {};
    action.sa_sigaction = on_signal;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    sigemptyset(&action.sa_mask);
    for (const int signal_number : crash_signals) {
        Chain& chain = chain_of(signal_number);
        if (sigaction(signal_number, &action, &chain.previous[chain.count]) == 0) ++chain.count;
        chain.passed = 0;
    }
    return true;
}

void remove_crash_handler() {
    if (state.handler.load() == nullptr) return;
    for (const int signal_number : crash_signals) {
        Chain& chain = chain_of(signal_number);
        struct sigaction current {};
        if (sigaction(signal_number, nullptr, &current) != 0 || !is_ours(current) || chain.count == 0) continue;
        sigaction(signal_number, &chain.previous[--chain.count], nullptr);
    }
    state.handler.store(nullptr);
}

}  // namespace platform

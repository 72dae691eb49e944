// How the log is prepared for a process. One thread at a time does the work; whoever comes meanwhile, on this thread or
// another, goes on without waiting, and its message without the file.
//
//     NOT_STARTED ---> STARTED ---> OPENING ---> COMPLETE        (the first message, or CrashInit, walks as far as it can)
//         |  switches and  |  the file system  |  there is a file,  |
//         |  configuration |  is there         |  or never one      |
//         +----------------+----- CrashClose --+--------------------+---> CLOSED
//
// While the file system is not there yet the phase stays STARTED, and each message for the file tries again.
#include <engine/filesystem/startup/crash.h>

#include <atomic>
#include <new>
#include <string>

#include <engine/filesystem/log.h>
#include <engine/filesystem/registry.h>

#include "engine/filesystem/contract/set_error.h"
#include "engine/filesystem/log/assertions.h"
#include "engine/filesystem/log/levels.h"
#include "engine/filesystem/log/sinks.h"
#include "engine/filesystem/registry/registry.h"
#include "engine/filesystem/startup/crash/assert.h"
#include "engine/filesystem/startup/crash/name.h"
#include "engine/filesystem/startup/log/config.h"
#include "engine/filesystem/startup/log/file.h"
#include "engine/filesystem/startup/log/switches.h"
#include "engine/platform/clock.h"
#include "engine/platform/process.h"

namespace {

using logging::StartUp;

constexpr std::uint32_t all_bits = 0xFFFFFFFFu;
constexpr const char* fallback_log_name = "out/logs/crash.log";

struct CrashState {
    std::atomic_flag busy;  // held by the thread that runs a step; guards the next two
    bool is_silent = false;
    bool is_configured = false;
    std::atomic<bool> call_stacks{true};
};
constinit CrashState state;

/// Nothing happens, and false is answered, when the phase is not `from`.
bool change_phase(StartUp from, StartUp to) {
    return logging::state.phase.compare_exchange_strong(from, to, std::memory_order_acq_rel);
}

void read_switches() {
    const char* const line = platform::command_line();
    state.is_silent = crash::has_switch(line, "silent");
    logging::state.verbose.store(crash::has_switch(line, "verbose"), std::memory_order_relaxed);
}

void read_configuration() {
    if (state.is_configured) return;
    const std::string name = crash::option_value(platform::command_line(), "logcfg=").value_or("CrashLog.cfg");
    state.is_configured = crash::read_configuration(name);
}

void start(bool console) {
    logging::state.console.store(console ? platform::standard_output() : nullptr, std::memory_order_release);
    read_switches();
    _CLFilterClear();
    read_configuration();
    _CLFilterAdd(logging::code("LLOG"), all_bits, CLFilterAction::CONSOLE);
    if (logging::state.verbose.load(std::memory_order_relaxed)) {
        _CLFilterAdd(logging::code("CLOG"), all_bits, CLFilterAction::BOTH);
    }
    change_phase(StartUp::NOT_STARTED, StartUp::STARTED);
}

void raise_level(Log::ELevel::TYPE level) {
    Log::Settings& settings = Log::Settings::Instance();
    if (settings.GetLevel() < level) settings.SetLevel(level);
}

std::string with_process(const std::string& name) {
    char text[1024];
    platform::BoundedText out(text);
    crash::add_with_process(out, name);
    return text;
}

/// A name of the present millisecond; where that is taken by another process, one with this process's number.
bool open_stamped() {
    constexpr int most_attempts = 100;
    for (int attempt = 0; attempt < most_attempts; ++attempt) {
        char text[64];
        platform::BoundedText name(text);
        crash::add_stamped_name(name.add(crash::log_folder), platform::now_local(), ".log");
        const crash::Opened opened = crash::open_log_file(attempt == 0 ? text : with_process(text), true);
        if (opened != crash::Opened::TAKEN) return opened == crash::Opened::YES;
    }
    return false;
}

bool open_named(const std::string& name) {
    crash::Opened opened = crash::open_log_file(name, false);
    if (opened == crash::Opened::TAKEN) opened = crash::open_log_file(with_process(name), false);
    return opened == crash::Opened::YES;
}

void open_file() {
    const bool is_verbose = logging::state.verbose.load(std::memory_order_relaxed);
    if (state.is_silent && !is_verbose) return;
    raise_level(is_verbose ? Log::ELevel::DEBG : Log::ELevel::INFO);
    const auto given = crash::option_value(platform::command_line(), "logfile=");
    if (given ? open_named(*given) : open_stamped()) return;
    open_named(fallback_log_name);
}

/// The step that needs the file system. Who closes the log meanwhile finds the file closed again.
void complete() {
    if (!fs::is_initialized() || !change_phase(StartUp::STARTED, StartUp::OPENING)) return;
    try {
        open_file();
    } catch (const std::bad_alloc&) {
        change_phase(StartUp::OPENING, StartUp::STARTED);  // for the next message to try again
        return;
    }
    if (!change_phase(StartUp::OPENING, StartUp::COMPLETE)) crash::close_log_file();
}

void run_steps(bool console) {
    const fs::ErrorKeeper keeper;
    const StartUp phase = logging::state.phase.load(std::memory_order_acquire);
    if (phase == StartUp::NOT_STARTED) start(console);
    if (phase == StartUp::STARTED) read_configuration();
    complete();
}

void run_by_message() { CrashInit(false); }
bool may_start_now() { return !fs::registry::this_thread_holds_lock(); }

/// Done as the library is loaded: the first message of a process may come before any call that could do it.
bool install() {
    logging::state.may_start_now.store(may_start_now, std::memory_order_release);
    logging::state.run.store(run_by_message, std::memory_order_release);
    logging::set_default_assert_handler(crash::ask_about_assertion);
    return true;
}
[[maybe_unused]] const bool is_installed = install();

}  // namespace

void CrashInit(bool console) {
    if (state.busy.test_and_set(std::memory_order_acquire)) return;
    try {
        run_steps(console);
    } catch (const std::bad_alloc&) {
        // The next message tries again.
    }
    state.busy.clear(std::memory_order_release);
}

void CrashInit() { CrashInit(false); }

void CrashClose() {
    logging::state.phase.store(StartUp::CLOSED, std::memory_order_release);
    crash::close_log_file();
}

void CrashInitOutToConsole() { logging::state.console.store(platform::standard_output(), std::memory_order_release); }
void CrashDisableOutToConsole() { logging::state.console.store(nullptr, std::memory_order_release); }
void* CrashGetConsoleHandle() { return logging::state.console.load(std::memory_order_acquire); }

void CrashGetStats(std::uint32_t& errors, std::uint32_t& warnings) {
    errors = logging::state.errors.load(std::memory_order_relaxed);
    warnings = logging::state.warnings.load(std::memory_order_relaxed);
}

void CrashShowMessageBox(bool on) { logging::state.message_boxes.store(on, std::memory_order_relaxed); }
bool CrashCanShowMessageBox() { return logging::state.message_boxes.load(std::memory_order_relaxed); }
void CrashShowCallstackInAsserts(bool on) { state.call_stacks.store(on, std::memory_order_relaxed); }
bool CrashCanShowCallstackInAsserts() { return state.call_stacks.load(std::memory_order_relaxed); }

const char* CrashGetLogFileName() { return crash::log_file_name(); }

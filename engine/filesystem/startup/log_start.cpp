// How the log is prepared for a process, in five phases. One thread at a time does the work; whoever comes meanwhile, on
// this thread or another, goes on without waiting, and its message without the file.
//
//     NOT_STARTED ---> STARTED ---> OPENING ---> COMPLETE        (the first message, or CrashInit, walks as far as it can)
//         |  switches and  |  the file system  |  there is a file,  |
//         |  configuration |  is there         |  or never one      |
//         +----------------+----- CrashClose --+--------------------+---> CLOSED
//
// While the file system is not there yet the phase stays STARTED, and each message for the file tries again.
#include <engine/filesystem/startup/crash.h>

#include <algorithm>
#include <atomic>
#include <string>

#include <engine/filesystem/log.h>
#include <engine/filesystem/registry.h>

#include "engine/filesystem/contract/failure.h"
#include "engine/filesystem/log/levels.h"
#include "engine/filesystem/log/sinks.h"
#include "engine/filesystem/registry/registry.h"
#include "engine/filesystem/startup/log.h"
#include "engine/platform/clock.h"
#include "engine/platform/process.h"

namespace {

using logging::StartUp;

constexpr std::uint32_t all_bits = 0xFFFFFFFFu;
constexpr const char* fallback_log_name = "out/logs/crash.log";

struct Progress {
    std::atomic_flag busy;  // set by the thread that runs a step; guards the next
    bool is_configured = false;
};
constinit Progress progress;

/// Nothing happens, and false is answered, when the phase is not `from`.
bool change_phase(StartUp from, StartUp to) {
    return logging::state.phase.compare_exchange_strong(from, to, std::memory_order_acq_rel);
}

void configure() {
    if (!progress.is_configured) progress.is_configured = crash::read_configuration();
}

void start(bool console) {
    logging::state.console = console ? platform::standard_output() : nullptr;
    logging::state.verbose = crash::has_switch(platform::command_line(), "verbose");
    _CLFilterClear();
    configure();
    _CLFilterAdd(logging::code("LLOG"), all_bits, CLFilterAction::CONSOLE);
    if (logging::state.verbose) _CLFilterAdd(logging::code("CLOG"), all_bits, CLFilterAction::BOTH);
    change_phase(StartUp::NOT_STARTED, StartUp::STARTED);
}

/// A name of the present millisecond; where that is taken by another process, one with this process's number.
bool open_stamped() {
    constexpr int most_attempts = 100;
    for (int attempt = 0; attempt < most_attempts; ++attempt) {
        char text[64];
        platform::BoundedText name(text);
        crash::add_stamped_name(name.add(crash::log_folder), platform::now_local(), ".log", attempt != 0);
        const crash::Opened opened = crash::open_log_file(text, true);
        if (opened != crash::Opened::TAKEN) return opened == crash::Opened::YES;
    }
    return false;
}

/// Where the name is taken by another process, one with this process's number before its ending.
bool open_named(std::string name) {
    crash::Opened opened = crash::open_log_file(name, false);
    if (opened == crash::Opened::TAKEN) {
        const std::size_t last = name.find_last_of("./\\");
        const bool has_ending = last != std::string::npos && name[last] == '.';
        name.insert(has_ending ? last : name.size(), "_" + std::to_string(platform::process_id()));
        opened = crash::open_log_file(name, false);
    }
    return opened == crash::Opened::YES;
}

void open_file() {
    const char* const line = platform::command_line();
    const bool is_verbose = logging::state.verbose;
    if (crash::has_switch(line, "silent") && !is_verbose) return;
    Log::Settings& settings = Log::Settings::Instance();
    settings.SetLevel(std::max(settings.GetLevel(), is_verbose ? Log::ELevel::DEBG : Log::ELevel::INFO));
    const auto given = crash::option_value(line, "logfile=");
    if (given ? open_named(*given) : open_stamped()) return;
    open_named(fallback_log_name);
}

/// The step that needs the file system. Who closes the log meanwhile finds the file closed again.
void complete() {
    if (!fs::is_initialized() || !change_phase(StartUp::STARTED, StartUp::OPENING)) return;
    open_file();
    if (!change_phase(StartUp::OPENING, StartUp::COMPLETE)) crash::close_log_file();
}

/// Done as the library is loaded: the first message of a process may come before any call that could do it.
bool install() {
    logging::state.run = [] {
        if (!fs::registry::this_thread_holds_lock()) CrashInit(false);  // opening the file would wait for it
    };
    return true;
}
[[maybe_unused]] const bool is_installed = install();

}  // namespace

void CrashInit(bool console) {
    if (progress.busy.test_and_set(std::memory_order_acquire)) return;
    try {
        const fs::ErrorKeeper keeper;
        const StartUp phase = logging::state.phase;
        if (phase == StartUp::NOT_STARTED) start(console);
        if (phase == StartUp::STARTED) configure();
        complete();
    } catch (...) {  // no memory: the next message tries again
        change_phase(StartUp::OPENING, StartUp::STARTED);
    }
    progress.busy.clear(std::memory_order_release);
}

void CrashInit() { CrashInit(false); }

void CrashClose() {
    logging::state.phase = StartUp::CLOSED;
    crash::close_log_file();
}

void CrashInitOutToConsole() { logging::state.console = platform::standard_output(); }
void CrashDisableOutToConsole() { logging::state.console = nullptr; }
void* CrashGetConsoleHandle() { return logging::state.console; }

void CrashGetStats(std::uint32_t& errors, std::uint32_t& warnings) {
    errors = logging::state.errors;
    warnings = logging::state.warnings;
}

void CrashShowMessageBox(bool on) { logging::state.message_boxes = on; }
bool CrashCanShowMessageBox() { return logging::state.message_boxes; }
void CrashShowCallstackInAsserts(bool on) { logging::state.call_stacks = on; }
bool CrashCanShowCallstackInAsserts() { return logging::state.call_stacks; }

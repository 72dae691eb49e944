#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include <engine/filesystem/log.h>

#include "engine/filesystem/log/levels.h"

// What the log core keeps, and where finished output goes. The crash start-up, which stands far above the log core, opens
// the log file: it is reached through what it installs here.

namespace logging {

/// One call of _CLogV, without its text.
struct Message {
    Log::ELevel::TYPE level;
    const char* category;  // not null
    const char* file;      // null: lines carry no position
    int line;
    CLFilterAction::ENUM action;
    CLLineMode::ENUM mode;
};

/// What one message leaves for the next.
struct LineState {
    CategoryKey category;
    std::uint32_t level = 0;
    std::uint32_t widest_header = 0;
    std::uint64_t is_open = 0;  // the line; 0 or 1
};
/// Any thread, and nobody waits: a state that two threads store at once may be mixed of both.
LineState load_line_state();
void store_line_state(const LineState& line);

/// The phases of the log's start; drawn in startup/log_start.cpp.
enum class StartUp : std::uint32_t {
    NOT_STARTED = 0,
    STARTED = 1,  // switches and configuration read, no log file yet
    OPENING = 2,  // the log file is being opened
    COMPLETE = 3,
    CLOSED = 4,
};

/// The log core's process-wide values. Each is whole by itself, and nobody waits for anybody.
struct State {
    std::atomic<CLFilterMode::ENUM> filter_mode{CLFilterMode::NORMAL};
    std::atomic<std::uint32_t> errors{0};  // counted by _CLFilter
    std::atomic<std::uint32_t> warnings{0};
    std::atomic<LogPrintCallback> console_callback{nullptr};
    std::atomic<LogPrintCallback> file_callback{nullptr};

    // The crash start-up's. Its calls are null until it installs itself.
    std::atomic<StartUp> phase{StartUp::NOT_STARTED};
    std::atomic<bool> verbose{false};
    std::atomic<bool> message_boxes{true};
    std::atomic<bool> call_stacks{true};  // in reports of assertions
    std::atomic<void*> console{nullptr};  // null: no console output
    /// Runs the start-up with its default argument, unless this thread holds a lock that opening the log file needs. Called
    /// while the phase is neither COMPLETE nor CLOSED.
    std::atomic<void (*)()> run{nullptr};
    /// Writes to the log file; null while there is none.
    std::atomic<void (*)(const char* text, std::size_t length)> write_to_file{nullptr};
};

extern State state;

/// Runs the crash start-up unless it has completed, or must not run on this thread now.
void ensure_started();

/// Hands output, which may be empty and ends in a zero, to what the message's action names, and keeps it.
void send(const Message& message, std::string_view output);

/// How many of the last lines can always be had, for crash reports.
inline constexpr int recent_line_count = 200;

/// Hands the last lines, oldest first and in pieces, to `write`. Takes no lock and no memory, so that a crash handler
/// may call it; what is being written meanwhile may come out mixed.
void write_recent_lines(void (*write)(const char* text, std::size_t length, void* user), void* user);

}  // namespace logging

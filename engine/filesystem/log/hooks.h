#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

// How the crash start-up, which stands far above the log core, is reached from it.

namespace logging {

enum class StartUp : std::uint32_t {
    NOT_STARTED = 0,
    STARTED = 1,  // switches and configuration read, no log file yet
    OPENING = 2,  // the log file is being opened
    COMPLETE = 3,
    CLOSED = 4,
};

/// What the crash start-up keeps in the log core for it to read, and the calls by which it is asked. All of them are
/// null until the crash start-up installs itself; messages for the log file then reach the crash print callback alone.
struct StartUpValues {
    std::atomic<StartUp> phase{StartUp::NOT_STARTED};
    std::atomic<bool> verbose{false};
    std::atomic<bool> message_boxes{true};
    std::atomic<void*> console{nullptr};  // null: no console output

    /// Runs the start-up with its default argument. Called while the phase is neither COMPLETE nor CLOSED.
    std::atomic<void (*)()> run{nullptr};
    /// Whether this thread may run it now: not while it holds a lock that opening the log file needs.
    std::atomic<bool (*)()> may_start_now{nullptr};
    /// Writes to the log file; null while there is none.
    std::atomic<void (*)(const char* text, std::size_t length)> write_to_file{nullptr};
};

StartUpValues& start_up_values();

/// Runs the crash start-up unless it has completed, or must not run on this thread now.
void ensure_started();

/// The counters that _CLFilter keeps.
std::uint32_t error_count();
std::uint32_t warning_count();

}  // namespace logging

#pragma once

#include <cstddef>

// The last lines of the log, kept in memory for crash reports.

namespace logging {

/// How many of the last lines can always be had.
inline constexpr int recent_line_count = 200;
/// Longer lines are kept without their end.
inline constexpr std::size_t recent_line_limit = 512;

/// Any thread; neither locks nor waits.
void remember_output(const char* text, std::size_t length);

/// Hands the last lines, oldest first and in pieces, to `write`. Takes no lock and no memory, so that a crash handler
/// may call it; what is being written meanwhile may come out mixed.
void write_recent_lines(void (*write)(const char* text, std::size_t length, void* user), void* user);

}  // namespace logging

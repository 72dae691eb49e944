#pragma once

#include <cstddef>

namespace crash {

/// A native or virtual path of ours in a buffer that a crash handler can read.
inline constexpr std::size_t name_capacity = 520;

/// Opens the log file below this name and makes it the place that log lines go to. False when it cannot be opened.
bool open_log_file(const char* name);
/// Closes it, and removes it when it is empty and this process made it. Nothing happens when there is none.
void close_log_file();
/// As the open file names itself; null when there is none.
const char* log_file_name();
/// The native directory of the log file, ending in "/"; "" before one was opened.
const char* log_directory();

}  // namespace crash

#pragma once

#include <cstddef>
#include <cstdint>

namespace platform {

/// Directory of the running executable with "/" separators, ending in "/". Written once; never null.
const char* executable_directory();
/// Full path of the running executable.
const char* executable_path();
/// The process's command line (on POSIX its arguments joined by blanks). Never null.
const char* command_line();

/// Ends the process at once with this exit code, without static destructors.
[[noreturn]] void exit_process(int code);

enum class Answer : std::uint8_t { OK, ABORT, RETRY, CARRY_ON };
/// Shows a box where someone can see and answer it; otherwise (no desktop) prints it on stderr and answers `fallback`.
/// Never blocks a machine without a desktop. `style` is the MessageBoxA style.
Answer show_message(const char* text, const char* caption, std::uint32_t style, Answer fallback);

/// The process's standard output, or null when it has none.
void* standard_output();
/// Writes to a console handle, a redirected standard output included. Failures are ignored.
void write_console(void* console, const char* text, std::size_t length);

std::uint32_t process_id();
std::uint32_t processor_count();

/// Gives memory back to the system where the allocator keeps it, after something large was freed.
void trim_heap();

}  // namespace platform

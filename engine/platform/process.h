#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace platform {

/// Directory of the running executable, ending in "/"; "./" when it is not known. It stays; never null, as the next two.
const char* executable_directory();
/// Full path of the running executable with "/" separators; "" when it is not known.
const char* executable_path();
/// The process's command line (on POSIX its arguments joined by blanks).
const char* command_line();

/// What each system supplies for these three. They throw std::bad_alloc.
std::string find_executable();
std::string find_command_line();

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

}  // namespace platform

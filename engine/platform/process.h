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

struct Module;
/// Loads the companion module `name` (no prefix, no ending): NAME.dll on Windows, libNAME.so on Linux, beside the
/// executable first, then by the loader. Null when it is missing.
Module* load_module(const char* name);
void* find_symbol(Module* module, const char* name);
void unload_module(Module* module);

// Large blocks of memory straight from the system. Growing one moves its pages and not its bytes, and its first use is
// cheap, where the system has the means.

/// What sizes of blocks are multiples of.
inline constexpr std::size_t block_step = std::size_t{2} << 20;

/// A new block, all zeros; null without memory.
void* allocate_block(std::size_t size);
/// The block made larger, elsewhere perhaps; the new part is zeros. Null without memory, and the old block stands.
void* grow_block(void* block, std::size_t old_size, std::size_t new_size);
void free_block(void* block, std::size_t size);

/// Has the system put memory behind a range, of any kind, in one go instead of at the first touch of each page: for what
/// is about to be written. Where the system has no means nothing happens.
void populate(void* range, std::size_t size);

}  // namespace platform

#pragma once

#include <cstdint>
#include <string>

#include <engine/filesystem/contract/error.h>

inline constexpr int exit_ok = 0;
inline constexpr int exit_failed = 1;  // not found, or failed
inline constexpr int exit_usage = 2;   // a wrong command line

/// A text as it stands in one line: without the control characters of ASCII and of ISO 8859, which steer terminals.
std::string printable(const std::string& text);

/// The same, with bytes that are no UTF-8 as "\\xe9".
std::string as_utf8(const std::string& text);

/// Whether what is said on standard error has colours.
void color_errors(bool on);

/// Says on standard error what is wrong with `name`. Returns false.
bool fail(const std::string& name, const std::string& reason);

/// The same with the library's own account of the thread's last failure, or `otherwise` when it gave none.
bool fail_with_last_error(const std::string& name, const std::string& otherwise);

/// Calls into the library; when that answers false, says why of `name`.
template <class Call>
bool attempt(const std::string& name, const char* otherwise, const Call& call) {
    fs::clear_error();
    return call() || fail_with_last_error(name, otherwise);
}

/// Thrown, after a word on standard error, where a command cannot go on.
struct CommandFailed {};

/// What the library answers. The command fails, and says why of `name`, when it could not tell.
template <class Call>
auto ask(const std::string& name, const Call& call) {
    fs::clear_error();
    auto answer = call();
    const EFSError::TYPE code = fs::last_error().code;
    if (code == EFSError::NONE || code == EFSError::NOT_FOUND || code == EFSError::UNSUPPORTED) return answer;
    fail_with_last_error(name, "it cannot be looked up");
    throw CommandFailed();
}

/// Says so without using memory.
void fail_without_memory();

/// Thrown, after a word on standard error, when an argument is not what it should be.
struct WrongUsage {};
[[noreturn]] void fail_usage(const std::string& name, const std::string& reason);

/// Says something on standard error that is no failure.
void note(const std::string& name, const std::string& text);

/// Text as printf makes it.
#if defined(__MINGW32__) && !defined(__clang__)
[[gnu::format(gnu_printf, 1, 2)]]
#else
[[gnu::format(printf, 1, 2)]]
#endif
std::string
formatted(const char* format, ...);

/// "1 file", "2 files".
std::string counted(std::uint64_t count, const char* one, const char* many);

/// Prints to standard output; what cannot be written is remembered for finish_output. False when it was not.
bool print(const std::string& text);
bool print_bytes(const void* data, std::uint64_t size);

/// `status`, or exit_failed with a message when standard output could not be written.
int finish_output(int status);

#pragma once

#include <cstdint>
#include <string>

/// Exit statuses: fine, not found or failed, wrong command line.
inline constexpr int exit_ok = 0;
inline constexpr int exit_failed = 1;
inline constexpr int exit_usage = 2;

/// Says on standard error what is wrong with `name`; returns exit_failed.
int fail(const std::string& name, const std::string& reason);

/// The same with the library's own account of the thread's last failure, or `otherwise` when it gave none.
int fail_with_last_error(const std::string& name, const std::string& otherwise);

/// Says something on standard error that is no failure.
void note(const std::string& name, const std::string& text);

/// Prints to standard output; what cannot be written is remembered for finish_output.
void print(const std::string& text);
void print_bytes(const void* data, std::uint64_t size);
/// Whether everything went out so far; long work may stop when it did not.
bool is_output_good();

/// `status`, or exit_failed with a message when standard output could not be written.
int finish_output(int status);

#include "report.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include <nlohmann/json.hpp>

namespace {

int output_error = 0;  // errno of the first write to standard output that failed

void remember_failure() {
    if (output_error == 0) output_error = errno != 0 ? errno : EIO;
}

/// A name as it stands in a message of one line.
std::string printable(const std::string& name) {
    if (name.empty()) return "\"\"";
    std::string text;
    for (const char c : name)
        text +=
            static_cast<unsigned char>(c) >= ' ' ? std::string(1, c) : formatted("\\x%02x", static_cast<unsigned>(c));
    return text;
}

}  // namespace

bool fail(const std::string& name, const std::string& reason) {
    std::fflush(stdout);
    std::fprintf(stderr, "enginefs: %s: %s\n", printable(name).c_str(), reason.c_str());
    return false;
}

bool fail_with_last_error(const std::string& name, const std::string& otherwise) {
    const SFsError& error = fs::last_error();
    return fail(name, error.code == EFSError::NONE || error.text.empty() ? otherwise : error.text);
}

void fail_without_memory() { std::fputs("enginefs: there is not enough memory\n", stderr); }

void fail_usage(const std::string& name, const std::string& reason) {
    fail(name, reason);
    throw WrongUsage();
}

void note(const std::string& name, const std::string& text) { fail(name, text); }

std::string formatted(const char* format, ...) {
    char text[256];  // for numbers and short words
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return text;
}

std::string counted(std::uint64_t count, const char* one, const char* many) {
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

bool print(const std::string& text) { return print_bytes(text.data(), text.size()); }

bool print_bytes(const void* data, std::uint64_t size) {
    errno = 0;
    if (std::fwrite(data, 1, size, stdout) != size) remember_failure();
    return output_error == 0;
}

bool print_json(const nlohmann::ordered_json& json) {
    return print(json.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n");
}

int finish_output(int status) {
    errno = 0;
    if (std::fflush(stdout) != 0) remember_failure();
    if (output_error == 0) return status;
    fail("standard output", std::string("it cannot be written: ") + std::strerror(output_error));
    return exit_failed;
}

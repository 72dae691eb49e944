#include "report.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace {

int output_error = 0;  // errno of the first write to standard output that failed
bool has_colors = false;

void remember_failure() {
    if (output_error == 0) output_error = errno != 0 ? errno : EIO;
}

}  // namespace

std::string printable(const std::string& text) {
    std::string out;
    unsigned char before = 0;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        const bool is_iso = before == 0xC2 && byte >= 0x80 && byte < 0xA0;
        if (is_iso) out.pop_back();
        out += byte < ' ' || byte == 0x7F || is_iso ? formatted("\\x%02x", static_cast<unsigned>(byte))
                                                    : std::string(1, c);
        before = byte;
    }
    return out;
}

void color_errors(bool on) { has_colors = on; }

bool fail(const std::string& name, const std::string& reason) {
    std::fflush(stdout);
    std::fprintf(stderr, has_colors ? "\x1b[31menginefs\x1b[0m: %s: %s\n" : "enginefs: %s: %s\n",
                 name.empty() ? "\"\"" : printable(name).c_str(), printable(reason).c_str());
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

int finish_output(int status) {
    errno = 0;
    if (std::fflush(stdout) != 0) remember_failure();
    if (output_error == 0) return status;
    fail("standard output", std::string("it cannot be written: ") + std::strerror(output_error));
    return exit_failed;
}

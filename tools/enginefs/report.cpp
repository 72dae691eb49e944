#include "report.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <engine/filesystem/contract/error.h>

namespace {

int output_error = 0;  // errno of the first write to standard output that failed

void remember_failure() {
    if (output_error == 0) output_error = errno != 0 ? errno : EIO;
}

/// A name as it stands in a message of one line.
std::string printable(const std::string& name) {
    if (name.empty()) return "\"\"";
    std::string text;
    for (const char c : name) {
        if (static_cast<unsigned char>(c) >= ' ') {
            text += c;
            continue;
        }
        char escape[8];
        std::snprintf(escape, sizeof escape, "\\x%02x", static_cast<unsigned>(c));
        text += escape;
    }
    return text;
}

}  // namespace

int fail(const std::string& name, const std::string& reason) {
    std::fflush(stdout);
    std::fprintf(stderr, "enginefs: %s: %s\n", printable(name).c_str(), reason.c_str());
    return exit_failed;
}

int fail_with_last_error(const std::string& name, const std::string& otherwise) {
    const SFsError& error = fs::last_error();
    return fail(name, error.code == EFSError::NONE || error.text.empty() ? otherwise : error.text);
}

void note(const std::string& name, const std::string& text) { fail(name, text); }

void print(const std::string& text) { print_bytes(text.data(), text.size()); }

void print_bytes(const void* data, std::uint64_t size) {
    errno = 0;
    if (std::fwrite(data, 1, size, stdout) != size) remember_failure();
}

bool is_output_good() { return output_error == 0; }

int finish_output(int status) {
    errno = 0;
    if (std::fflush(stdout) != 0) remember_failure();
    if (is_output_good()) return status;
    return fail("standard output", std::string("it cannot be written: ") + std::strerror(output_error));
}

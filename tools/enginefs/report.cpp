#include "report.h"

#include <cstdio>

#include <engine/filesystem/contract/error.h>

namespace {

bool output_failed = false;

}  // namespace

int fail(const std::string& name, const std::string& reason) {
    std::fflush(stdout);
    std::fprintf(stderr, "enginefs: %s: %s\n", name.c_str(), reason.c_str());
    return exit_failed;
}

int fail_with_last_error(const std::string& name, const std::string& otherwise) {
    const SFsError& error = fs::last_error();
    return fail(name, error.code == EFSError::NONE || error.text.empty() ? otherwise : error.text);
}

void note(const std::string& name, const std::string& text) { fail(name, text); }

void print(const std::string& text) { print_bytes(text.data(), text.size()); }

void print_bytes(const void* data, std::uint64_t size) {
    if (std::fwrite(data, 1, size, stdout) != size) output_failed = true;
}

int finish_output(int status) {
    if (std::fflush(stdout) != 0) output_failed = true;
    if (!output_failed) return status;
    return fail("standard output", "it cannot be written");
}

#include "equal.h"

#include <cstring>

#include <engine/filesystem.h>

#include "report.h"

namespace {

constexpr std::size_t piece_size = 1u << 18;

}  // namespace

bool same_bytes(SFsFile* first, SFsFile* second, const std::string& told) {
    const auto fail_if = [&told](bool is_bad) {
        if (!is_bad) return;
        fail_with_last_error(told, "it cannot be read");
        throw CommandFailed();
    };
    const auto read = [&](SFsFile* file, std::vector<char>& piece) {
        const std::uint64_t got = fs::read(file, piece.data(), piece_size);
        fail_if(got == failed || fs::last_error().code != EFSError::NONE);
        return got;
    };
    fail_if(first == nullptr || second == nullptr);
    fs::clear_error();
    std::vector<char> one(piece_size), other(piece_size);
    for (;;) {
        const std::uint64_t got = read(first, one);
        if (read(second, other) != got) return false;
        if (got == 0) return true;
        if (std::memcmp(one.data(), other.data(), static_cast<std::size_t>(got)) != 0) return false;
    }
}

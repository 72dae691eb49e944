#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

/// Names of files are compared without regard to the case of ASCII letters, on both systems.

namespace platform {

inline char fold(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c; }

/// A bit 0x80 in every byte of `word` that is an upper-case ASCII letter; all eight are looked at in one go.
inline std::uint64_t upper_case_bytes(std::uint64_t word) {
    constexpr std::uint64_t ones = 0x0101010101010101u;
    const std::uint64_t low_bits = word & (0x7F * ones);
    const std::uint64_t past_z = low_bits + (0x7F - 'Z') * ones;
    const std::uint64_t from_a = low_bits + (0x80 - 'A') * ones;
    return ~word & (from_a ^ past_z) & (0x80 * ones);
}

inline std::uint64_t fold_word(std::uint64_t word) { return word | (upper_case_bytes(word) >> 2); }

inline bool has_upper_case(const char* text, std::size_t length) {
    std::size_t i = 0;
    for (; i + 8 <= length; i += 8) {
        std::uint64_t word;
        std::memcpy(&word, text + i, 8);
        if (upper_case_bytes(word) != 0) return true;
    }
    for (; i < length; ++i) {
        if (fold(text[i]) != text[i]) return true;
    }
    return false;
}

inline bool equal_folded(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) { return fold(x) == fold(y); });
}

}  // namespace platform

#pragma once

#include <cstdint>
#include <cstdlib>
#include <string_view>

// The pack's numbers, least significant byte first, and what is done with names.

namespace fs {

inline std::uint16_t get_u16(const std::uint8_t* bytes) { return static_cast<std::uint16_t>(bytes[0] | bytes[1] << 8); }
inline std::uint32_t get_u32(const std::uint8_t* bytes) {
    return bytes[0] | std::uint32_t{bytes[1]} << 8 | std::uint32_t{bytes[2]} << 16 | std::uint32_t{bytes[3]} << 24;
}

// Written out, so that compilers make one load of each.
inline std::uint64_t get_u64(const std::uint8_t* bytes) {
    return std::uint64_t{bytes[0]} | std::uint64_t{bytes[1]} << 8 | std::uint64_t{bytes[2]} << 16 |
           std::uint64_t{bytes[3]} << 24 | std::uint64_t{bytes[4]} << 32 | std::uint64_t{bytes[5]} << 40 |
           std::uint64_t{bytes[6]} << 48 | std::uint64_t{bytes[7]} << 56;
}
inline std::uint64_t get_u64_highest_first(const std::uint8_t* bytes) {
    return std::uint64_t{bytes[7]} | std::uint64_t{bytes[6]} << 8 | std::uint64_t{bytes[5]} << 16 |
           std::uint64_t{bytes[4]} << 24 | std::uint64_t{bytes[3]} << 32 | std::uint64_t{bytes[2]} << 40 |
           std::uint64_t{bytes[1]} << 48 | std::uint64_t{bytes[0]} << 56;
}

/// Eight bytes at a time; never kept on disk, so it may differ from one machine to the next.
inline std::uint64_t hash_text(std::string_view text, std::uint64_t seed = 0) {
    constexpr std::uint64_t factor = 0x9E3779B97F4A7C15u;
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data());
    std::size_t left = text.size();
    std::uint64_t hash = (seed ^ left) * factor;
    const auto mix = [&hash](std::uint64_t word) {
        hash = (hash ^ word) * factor;
        hash ^= hash >> 32;
    };
    for (; left >= 8; left -= 8, bytes += 8) mix(get_u64(bytes));
    if (left >= 4) mix(get_u32(bytes) | std::uint64_t{get_u32(bytes + left - 4)} << 32);
    if (left > 0 && left < 4) mix(bytes[0] | bytes[left / 2] << 8 | bytes[left - 1] << 16);
    hash = hash * factor;
    return hash ^ hash >> 29;
}

/// `dir` followed by `name` in a block of the C allocator, as an open file holds its name; null without memory.
inline char* join_name(std::string_view dir, std::string_view name) {
    auto* text = static_cast<char*>(std::malloc(dir.size() + name.size() + 1));
    if (!text) return nullptr;
    dir.copy(text, dir.size());
    name.copy(text + dir.size(), name.size());
    text[dir.size() + name.size()] = '\0';
    return text;
}

}  // namespace fs

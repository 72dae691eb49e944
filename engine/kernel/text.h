#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "engine/kernel/bytes.h"
#include "engine/platform/text.h"

/// Marks a function whose parameter number `which` (from 1, `this` included) is a printf format. C99 on both systems.
#if defined(__MINGW32__)
#define ENGINE_PRINTF(which, first) [[gnu::format(gnu_printf, which, first)]]
#else
#define ENGINE_PRINTF(which, first) [[gnu::format(printf, which, first)]]
#endif

namespace kernel {

// Names are compared without regard to the case of ASCII letters; other bytes stand for themselves.
using platform::equal_folded;
using platform::fold;

/// A quick hash of a text, eight bytes at a time. It stays inside the process and never reaches a file.
inline std::uint64_t hash_text(std::string_view text, std::uint64_t seed = 0) {
    constexpr std::uint64_t factor = 0x9E3779B97F4A7C15u;
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data());
    std::size_t left = text.size();
    std::uint64_t hash = (seed ^ left) * factor;
    const auto mix = [&hash](std::uint64_t word) {
        hash = (hash ^ word) * factor;
        hash ^= hash >> 32;
    };
    for (; left >= 8; left -= 8, bytes += 8) mix(load_u64(bytes));
    if (left >= 4) mix(load_u32(bytes) | std::uint64_t{load_u32(bytes + left - 4)} << 32);
    if (left > 0 && left < 4)
        mix(std::uint64_t{bytes[0]} | std::uint64_t{bytes[left / 2]} << 8 | std::uint64_t{bytes[left - 1]} << 16);
    hash *= factor;
    return hash ^ hash >> 29;
}

// UTF-16 where one character may take two units.
constexpr bool is_high_surrogate(std::uint32_t unit) { return (unit & 0xFFFFFC00u) == 0xD800u; }
constexpr bool is_low_surrogate(std::uint32_t unit) { return (unit & 0xFFFFFC00u) == 0xDC00u; }
constexpr std::uint32_t join_surrogates(std::uint32_t high, std::uint32_t low) {
    return 0x10000u + ((high & 0x3FFu) << 10) + (low & 0x3FFu);
}

/// Whether all of the text is well-formed UTF-8.
inline bool is_utf8(std::string_view text) {
    while (!text.empty()) {
        const std::size_t length = platform::decode_utf8(text).length;
        if (length == 0) return false;
        text.remove_prefix(length);
    }
    return true;
}

/// vsnprintf with one addition: "%p" prints "0x" and hexadecimal digits on every system, a null pointer too (but "0" where
/// flags or a width stand in between).
///
/// Returns  the length of the whole text, which is longer than what `out` holds when it was cut; negative when the
///          arguments cannot be converted (`out` is then "").
ENGINE_PRINTF(3, 0) int format_text(char* out, std::size_t capacity, const char* format, va_list args);

}  // namespace kernel

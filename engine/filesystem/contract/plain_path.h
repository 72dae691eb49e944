#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include <emmintrin.h>

namespace fs {

// Nearly every path that comes in is *plain*: in normal form already but for case and the kind of its separators. Here
// such a path is recognised, and its text or a part of it copied, sixteen bytes at a time.

/// The first 16 bytes of a text, with zeros behind a shorter one. Reads nothing beyond the text.
inline __m128i load_block(const char* text, std::size_t length) {
    if (length >= 16) return _mm_loadu_si128(reinterpret_cast<const __m128i*>(text));
    const auto byte = [text](std::size_t at) { return std::uint64_t{static_cast<unsigned char>(text[at])} << 8 * at; };
    std::uint64_t low = 0;
    std::uint64_t high = 0;
    if (length >= 8) {
        std::memcpy(&low, text, 8);
        std::memcpy(&high, text + length - 8, 8);
        high = high >> 8 * (15 - length) >> 8;  // what of it is in `low` already goes; a shift by 64 is none
    } else if (length >= 4) {
        std::uint32_t first = 0;
        std::uint32_t last = 0;
        std::memcpy(&first, text, 4);
        std::memcpy(&last, text + length - 4, 4);
        low = first | std::uint64_t{last} << 8 * (length - 4);
    } else if (length != 0) {
        low = byte(0) | byte(length / 2) | byte(length - 1);
    }
    return _mm_set_epi64x(static_cast<long long>(high), static_cast<long long>(low));
}

/// "/" for "\\", and, unless `keep_case`, lower case for ASCII letters.
inline __m128i make_plain(__m128i block, bool keep_case) {
    const __m128i backslash = _mm_cmpeq_epi8(block, _mm_set1_epi8('\\'));
    block = _mm_xor_si128(block, _mm_and_si128(backslash, _mm_set1_epi8('\\' ^ '/')));
    if (keep_case) return block;
    const __m128i upper =
        _mm_and_si128(_mm_cmpgt_epi8(block, _mm_set1_epi8('A' - 1)), _mm_cmplt_epi8(block, _mm_set1_epi8('Z' + 1)));
    return _mm_or_si128(block, _mm_and_si128(upper, _mm_set1_epi8('a' - 'A')));
}

/// Copies plain text of up to 31 bytes, and zeros behind it.
inline void copy_short_plain(char (&out)[32], const char* in, std::size_t length, bool keep_case) {
    const __m128i first = load_block(in, length);
    const __m128i second = length > 16 ? load_block(in + 16, length - 16) : _mm_setzero_si128();
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), make_plain(first, keep_case));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 16), make_plain(second, keep_case));
}

/// Copies plain text of any length, without a terminator. `out` may be `in`.
inline void copy_plain(char* out, const char* in, std::size_t length, bool keep_case) {
    const auto copy_block = [&](std::size_t at) {
        const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + at));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + at), make_plain(block, keep_case));
    };
    if (length < 16) {
        char block[16];
        _mm_storeu_si128(reinterpret_cast<__m128i*>(block), make_plain(load_block(in, length), keep_case));
        std::memcpy(out, block, length);
        return;
    }
    for (std::size_t at = 0; at + 16 <= length; at += 16) copy_block(at);
    copy_block(length - 16);  // what it copies a second time stays as it is
}

/// What a look at a path tells.
struct PathLook {
    bool is_plain = false;
    std::size_t split = 0;  // of a plain one: just past its last separator, 0 when it has none
};

/// Looks at a path that is `length` bytes long and terminated.
inline PathLook look_at_path(const char* text, std::size_t length) {
    const auto bits_of = [](__m128i block, char wanted) {
        return static_cast<std::uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(block, _mm_set1_epi8(wanted))));
    };
    const auto ends_component = [](char letter) { return letter == '\0' || letter == '/' || letter == '\\'; };
    std::size_t split = 0;
    std::uint32_t separator_before = 0;  // one when the byte before the block is a separator
    std::uint32_t starts_component = 1;  // one when the block begins with a component
    for (std::size_t at = 0; at < length; at += 16) {
        const __m128i block = load_block(text + at, length - at);
        const std::uint32_t separators = bits_of(block, '/') | bits_of(block, '\\');
        const std::uint32_t runs = separators & (separators << 1 | separator_before);
        if ((runs | bits_of(block, ':')) != 0) return {};  // a component without a name, or perhaps a prefix
        std::uint32_t dots = bits_of(block, '.') & (separators << 1 | starts_component);
        for (; dots != 0; dots &= dots - 1) {
            const char* component = text + at + static_cast<std::size_t>(std::countr_zero(dots));
            if (ends_component(component[1]) || (component[1] == '.' && ends_component(component[2]))) return {};
        }
        if (separators != 0) split = at + static_cast<std::size_t>(std::bit_width(separators));
        separator_before = starts_component = separators >> 15;
    }
    return {.is_plain = true, .split = split};
}

}  // namespace fs

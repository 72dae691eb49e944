#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace fs {

// Nearly every path that comes in is *plain*: in normal form already but for case and the kind of its separators. Here
// such a path is recognised, and its text or a part of it copied, sixteen bytes at a time, by what GCC and clang know of
// vectors on every processor.

using Block = std::uint8_t __attribute__((vector_size(16)));
using Halves = std::uint64_t __attribute__((vector_size(16)));

/// The first 16 bytes of a text, with zeros behind a shorter one. Reads nothing beyond the text.
inline Block load_block(const char* text, std::size_t length) {
    Block block{};
    auto* const out = reinterpret_cast<char*>(&block);
    // Two pieces that may lie over each other fill any length.
    const auto fill = [&](std::size_t piece) {
        std::memcpy(out, text, piece);
        std::memcpy(out + length - piece, text + length - piece, piece);
    };
    if (length >= 16) {
        std::memcpy(out, text, 16);
    } else if (length >= 8) {
        fill(8);
    } else if (length >= 4) {
        fill(4);
    } else if (length != 0) {
        out[0] = text[0];
        out[length / 2] = text[length / 2];
        out[length - 1] = text[length - 1];
    }
    return block;
}

inline void store_block(char* out, const Block& block) { std::memcpy(out, &block, sizeof block); }

/// "/" for "\\", and, unless `keep_case`, lower case for ASCII letters.
inline Block make_plain(Block block, bool keep_case) {
    block ^= Block(block == '\\') & ('\\' ^ '/');
    if (keep_case) return block;
    return block | (Block(block - 'A' < 26) & ('a' - 'A'));
}

/// Copies plain text of any length, without a terminator. `out` may be `in`.
inline void copy_plain(char* out, const char* in, std::size_t length, bool keep_case) {
    if (length < 16) {
        const Block block = make_plain(load_block(in, length), keep_case);
        std::memcpy(out, &block, length);
        return;
    }
    for (std::size_t at = 0; at + 16 <= length; at += 16)
        store_block(out + at, make_plain(load_block(in + at, 16), keep_case));
    const std::size_t last = length - 16;  // what it copies a second time stays as it is
    store_block(out + last, make_plain(load_block(in + last, 16), keep_case));
}

/// Eight bytes of a block, the first of them the lowest on every machine.
inline std::uint64_t half_of(const Block& block, std::size_t half) {
    const std::uint64_t word = Halves(block)[half];
    return std::endian::native == std::endian::little ? word : __builtin_bswap64(word);
}

/// What a look at a path tells.
struct PathLook {
    bool is_plain = false;
    std::size_t split = 0;  // of a plain one: just past its last separator, 0 when it has none
};

/// Looks at a path that is `length` bytes long and terminated.
inline PathLook look_at_path(const char* text, std::size_t length) {
    const auto ends_component = [](char letter) { return letter == '\0' || letter == '/' || letter == '\\'; };
    std::size_t split = 0;
    std::uint64_t separator_before = 0;     // 0xFF when the byte before the word is a separator
    std::uint64_t starts_component = 0xFF;  // 0xFF when the word begins with a component
    for (std::size_t at = 0; at < length; at += 16) {
        const Block block = load_block(text + at, length - at);
        const Block is_separator = Block(block == '/') | Block(block == '\\');
        const Block is_colon = Block(block == ':');
        const Block is_dot = Block(block == '.');
        for (std::size_t half = 0; half < 2; ++half) {
            const std::uint64_t separators = half_of(is_separator, half);
            if ((separators & (separators << 8 | separator_before)) != 0 || half_of(is_colon, half) != 0) return {};
            std::uint64_t dots = half_of(is_dot, half) & (separators << 8 | starts_component);
            for (; dots != 0; dots &= ~(std::uint64_t{0xFF} << std::countr_zero(dots))) {
                const char* component = text + at + 8 * half + static_cast<std::size_t>(std::countr_zero(dots)) / 8;
                if (ends_component(component[1]) || (component[1] == '.' && ends_component(component[2]))) return {};
            }
            if (separators != 0) split = at + 8 * half + static_cast<std::size_t>(std::bit_width(separators)) / 8;
            separator_before = starts_component = separators >> 56;
        }
    }
    return {.is_plain = true, .split = split};
}

}  // namespace fs

#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace fs {

// Wide text between memory (wchar_t of the platform) and files (16-bit units, least significant byte first). Where
// wchar_t is wider, pairs of surrogates become one character and back; a lone one passes as it is, and what no pair can
// say becomes U+FFFD.

/// The character as a number; wchar_t is signed on some systems.
inline std::uint32_t code_of(wchar_t character) { return static_cast<std::make_unsigned_t<wchar_t>>(character); }

/// Units that one character takes in a file: 1 or 2.
inline std::uint32_t units_of(wchar_t character) {
    if constexpr (sizeof(wchar_t) == 2) return 1;
    const std::uint32_t code = code_of(character);
    return code >= 0x10000 && code <= 0x10FFFF ? 2 : 1;
}

/// Units of a whole text.
std::uint64_t count_units(const wchar_t* text, std::size_t length);

/// Hands out the units of a text one by one.
class UnitReader {
public:
    explicit UnitReader(const wchar_t* text) : text_(text) {}
    /// The next unit; call it no more often than the text has units.
    std::uint16_t next();

private:
    const wchar_t* text_;
    std::uint16_t low_surrogate_ = 0;  // waiting to be handed out, 0 when there is none
};

/// Turns units, handed in one by one, into characters; at most as many.
class CharacterWriter {
public:
    explicit CharacterWriter(wchar_t* out) : out_(out) {}
    void add(std::uint16_t unit);
    std::size_t count() const { return count_; }

private:
    wchar_t* out_;
    std::size_t count_ = 0;
    std::uint16_t previous_ = 0;  // a high surrogate that may still become half of a pair, else 0
};

}  // namespace fs

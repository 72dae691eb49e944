#pragma once

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <string_view>

namespace platform {

// Names of files are compared without regard to the case of ASCII letters, on both systems.

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
    return std::any_of(text + i, text + length, [](char c) { return fold(c) != c; });
}

inline bool equal_folded(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) { return fold(x) == fold(y); });
}

/// What every directory holds: itself and the one above.
constexpr bool is_dots(std::string_view name) { return name == "." || name == ".."; }

/// A character and the bytes that it takes; none where no well-formed one begins.
struct Utf8Character {
    std::uint32_t value = 0;
    std::size_t length = 0;
};
/// The first character of `text`, which is not empty.
Utf8Character decode_utf8(std::string_view text);

/// Converts text of the system's narrow code page (UTF-8 on POSIX; bytes that are no UTF-8 are taken one for one).
/// Writes at most `length` characters, no terminator; returns how many.
std::size_t narrow_to_wide(const char* text, std::size_t length, wchar_t* out);

/// Appends to a caller's buffer, always terminated; what does not fit is cut and remembered. It allocates nothing and
/// calls nothing that a signal handler may not call.
class BoundedText {
public:
    BoundedText(char* out, std::size_t capacity) : out_(out), capacity_(capacity) {
        if (capacity_ != 0) out_[0] = '\0';
    }
    template <std::size_t Size>
    explicit BoundedText(char (&out)[Size]) : BoundedText(out, Size) {}

    BoundedText& add(std::string_view text) {
        const std::size_t room = capacity_ != 0 ? capacity_ - 1 - length_ : 0;
        if (text.size() > room) is_cut_ = true;
        const std::size_t count = std::min(text.size(), room);
        if (count == 0) return *this;
        std::memcpy(out_ + length_, text.data(), count);
        length_ += count;
        out_[length_] = '\0';
        return *this;
    }
    BoundedText& add(char letter) { return add(std::string_view(&letter, 1)); }
    /// In this base, with zeros before it up to `width` digits.
    template <class Number>
    BoundedText& add_number(Number value, int base = 10, std::size_t width = 0) {
        char digits[24];
        const std::string_view text(digits, std::to_chars(digits, std::end(digits), value, base).ptr);
        for (std::size_t i = text.size(); i < width; ++i) add('0');
        return add(text);
    }
    BoundedText& add_hex(std::uint64_t value, std::size_t width = 0) { return add("0x").add_number(value, 16, width); }

    std::string_view view() const { return {out_, length_}; }
    std::size_t length() const { return length_; }
    bool is_cut() const { return is_cut_; }

private:
    char* out_;
    std::size_t capacity_;
    std::size_t length_ = 0;
    bool is_cut_ = false;
};

}  // namespace platform

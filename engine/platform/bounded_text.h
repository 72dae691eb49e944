#pragma once

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <string_view>

namespace platform {

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
        const std::size_t count = text.size() < room ? text.size() : room;
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

// Most formats of log messages hold plain "%s", "%d" and the like. Those are written here, several times as fast as the
// C library does it; a format with anything else, or a text that does not fit, goes to the C library from its start.
//
// C libraries disagree on "%p" ("0x1f", "(nil)", sixteen digits). Formats that use it with flags are rewritten before
// they reach the C library.
#include "engine/kernel/format.h"

#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace kernel {

namespace {

constexpr std::size_t rewritten_capacity = 4096;

constexpr bool is_modifier(char c) {
    constexpr std::string_view modifiers = "-+ #0123456789.*hlLjzt'";
    return modifiers.find(c) != std::string_view::npos;
}

/// May say yes to "%%p", where nothing will be rewritten. Nearly every format is told by its letters 'p' alone.
bool has_pointer(const char* format) {
    for (const char* p = std::strchr(format, 'p'); p != nullptr; p = std::strchr(p + 1, 'p')) {
        const char* before = p;
        while (before > format && is_modifier(before[-1])) --before;
        if (before > format && before[-1] == '%') return true;
    }
    return false;
}

/// The conversion that starts at `percent` (a '%'): one past its last character, or its terminator.
const char* conversion_end(const char* percent) {
    const char* at = percent + 1;
    while (*at != '\0' && is_modifier(*at)) ++at;
    return *at == '\0' ? at : at + 1;
}

class Rewriter {
public:
    Rewriter(char* out, std::size_t capacity) : out_(out), left_(capacity - 1) {}

    void add(const char* text, std::size_t length) {
        if (length > left_) ok_ = false;
        if (!ok_) return;
        std::memcpy(out_, text, length);
        out_ += length;
        left_ -= length;
    }
    /// `from` is "%" and what stands between it and the 'p'. Pointers and 64-bit values travel alike as arguments.
    void add_pointer(const char* from, const char* p) {
        const bool plain = p == from + 1;
        add(plain ? "0x%" : "%#", plain ? 3 : 2);
        add(from + 1, static_cast<std::size_t>(p - from - 1));
        add("llx", 3);
    }
    bool finish() {
        *out_ = '\0';
        return ok_;
    }

private:
    char* out_;
    std::size_t left_;
    bool ok_ = true;
};

/// Rewrites each "%p" of `format`. False when the result does not fit.
bool rewrite_pointers(const char* format, char* out) {
    Rewriter rewriter(out, rewritten_capacity);
    while (const char* percent = std::strchr(format, '%')) {
        rewriter.add(format, static_cast<std::size_t>(percent - format));
        const char* const end = conversion_end(percent);
        if (end[-1] == 'p' && end - percent > 1) {
            rewriter.add_pointer(percent, end - 1);
        } else {
            rewriter.add(percent, static_cast<std::size_t>(end - percent));
        }
        format = end;
    }
    rewriter.add(format, std::strlen(format));
    return rewriter.finish();
}

/// Writes into a buffer as long as all of it, and a terminator, fit.
class PlainWriter {
public:
    PlainWriter(char* out, std::size_t capacity) : start_(out), at_(out), left_(capacity) {}

    bool add(const char* text, std::size_t length) {
        if (length >= left_) return false;
        std::memcpy(at_, text, length);
        at_ += length;
        left_ -= length;
        return true;
    }
    template <class Number>
    bool add_number(Number value, int base = 10) {
        char digits[24];
        return add(digits,
                   static_cast<std::size_t>(std::to_chars(digits, digits + sizeof(digits), value, base).ptr - digits));
    }
    int finish() {
        *at_ = '\0';
        return static_cast<int>(at_ - start_);
    }

private:
    char* const start_;
    char* at_;
    std::size_t left_;
};

bool add_string(PlainWriter& writer, const char* text) {
    if (text == nullptr) text = "(null)";
    return writer.add(text, std::strlen(text));
}

bool add_pointer(PlainWriter& writer, const void* pointer) {
    return writer.add("0x", 2) && writer.add_number(reinterpret_cast<std::uintptr_t>(pointer), 16);
}

/// One conversion without flags, width, precision or length modifier. False for all others, and when it does not fit.
bool add_conversion(PlainWriter& writer, char conversion, va_list* args) {
    switch (conversion) {
        case 's':
            return add_string(writer, va_arg(*args, const char*));
        case 'd':
        case 'i':
            return writer.add_number(va_arg(*args, int));
        case 'u':
            return writer.add_number(va_arg(*args, unsigned));
        case 'x':
            return writer.add_number(va_arg(*args, unsigned), 16);
        case 'p':
            return add_pointer(writer, va_arg(*args, const void*));
        case '%':
            return writer.add("%", 1);
        default:
            return false;
    }
}

/// The text's length, or -1 when the C library must do it.
int format_plain(char* out, std::size_t capacity, const char* format, va_list* args) {
    PlainWriter writer(out, capacity);
    while (const char* const percent = std::strchr(format, '%')) {
        if (!writer.add(format, static_cast<std::size_t>(percent - format))) return -1;
        if (!add_conversion(writer, percent[1], args)) return -1;
        format = percent + 2;
    }
    return writer.add(format, std::strlen(format)) ? writer.finish() : -1;
}

int format_checked(char* out, std::size_t capacity, const char* format, va_list args) {
    const int length = std::vsnprintf(out, capacity, format, args);
    if (length < 0 && capacity > 0) out[0] = '\0';
    return length;
}

/// Apart from the rest for the sake of its buffer.
[[gnu::noinline]] int format_by_library(char* out, std::size_t capacity, const char* format, va_list args) {
    if (!has_pointer(format)) return format_checked(out, capacity, format, args);
    char rewritten[rewritten_capacity];
    const bool fits = rewrite_pointers(format, rewritten);
    return format_checked(out, capacity, fits ? rewritten : format, args);
}

}  // namespace

int format_text(char* out, std::size_t capacity, const char* format, va_list args) {
    va_list plain;
    va_copy(plain, args);
    const int length = format_plain(out, capacity, format, &plain);
    va_end(plain);
    return length >= 0 ? length : format_by_library(out, capacity, format, args);
}

}  // namespace kernel

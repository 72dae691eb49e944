// Most formats of log messages hold plain "%s", "%d" and the like. Those are written here, several times as fast as the
// C library does it; a format with anything else, or a text that does not fit, goes to the C library from its start.
//
// C libraries disagree on "%p" ("0x1f", "(nil)", sixteen digits). Formats that use it with flags are rewritten before
// they reach the C library.
#include "engine/kernel/text.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace kernel {

namespace {

using platform::BoundedText;

constexpr std::size_t rewritten_capacity = 4096;
constexpr std::string_view modifiers = "-+ #0123456789.*hlLjzt'";

/// Rewrites each "%p" of `format`. False when the result does not fit.
bool rewrite_pointers(std::string_view format, BoundedText& out) {
    while (!format.empty()) {
        out.add(format.substr(0, format.find('%')));
        format.remove_prefix(std::min(format.find('%'), format.size()));
        const std::size_t letter = std::min(format.find_first_not_of(modifiers, 1), format.size());
        if (letter < format.size() && format[letter] == 'p') {
            // Pointers and 64-bit values travel alike as arguments.
            out.add(letter == 1 ? "0x%" : "%#").add(format.substr(1, letter - 1)).add("llx");
        } else {
            out.add(format.substr(0, letter + 1));
        }
        format.remove_prefix(std::min(letter + 1, format.size()));
    }
    return !out.is_cut();
}

std::string_view text_or_null(const char* text) { return text == nullptr ? "(null)" : text; }

/// One conversion without flags, width, precision or length modifier. False for all others.
bool add_conversion(BoundedText& out, char conversion, va_list* args) {
    if (conversion == 's')
        out.add(text_or_null(va_arg(*args, const char*)));
    else if (conversion == 'd' || conversion == 'i')
        out.add_number(va_arg(*args, int));
    else if (conversion == 'u')
        out.add_number(va_arg(*args, unsigned));
    else if (conversion == 'x')
        out.add_number(va_arg(*args, unsigned), 16);
    else if (conversion == 'p')
        out.add_hex(reinterpret_cast<std::uintptr_t>(va_arg(*args, const void*)));
    else if (conversion == '%')
        out.add('%');
    else
        return false;
    return true;
}

/// False when the C library must do it.
bool format_plain(BoundedText& out, const char* format, va_list* args) {
    while (const char* const percent = std::strchr(format, '%')) {
        out.add({format, percent});
        if (!add_conversion(out, percent[1], args)) return false;
        format = percent + 2;
    }
    return !out.add(format).is_cut();
}

/// Apart from the rest for the sake of its buffer.
[[gnu::noinline]] int format_by_library(char* out, std::size_t capacity, const char* format, va_list args) {
    char rewritten[rewritten_capacity];
    BoundedText text(rewritten);
    if (std::strchr(format, 'p') != nullptr && rewrite_pointers(format, text)) format = rewritten;
    const int length = std::vsnprintf(out, capacity, format, args);
    if (length < 0 && capacity > 0) out[0] = '\0';
    return length;
}

}  // namespace

int format_text(char* out, std::size_t capacity, const char* format, va_list args) {
    va_list plain;
    va_copy(plain, args);
    BoundedText text(out, capacity);
    const bool is_done = format_plain(text, format, &plain);
    va_end(plain);
    return is_done ? static_cast<int>(text.length()) : format_by_library(out, capacity, format, args);
}

}  // namespace kernel

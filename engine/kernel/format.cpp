// C libraries disagree on "%p" ("0x1f", "(nil)", sixteen digits). Formats that use it are rewritten before they reach
// the library's own formatter; all others pass untouched.
#include "engine/kernel/format.h"

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

int format_checked(char* out, std::size_t capacity, const char* format, va_list args) {
    const int length = std::vsnprintf(out, capacity, format, args);
    if (length < 0 && capacity > 0) out[0] = '\0';
    return length;
}

}  // namespace

int format_text(char* out, std::size_t capacity, const char* format, va_list args) {
    if (!has_pointer(format)) return format_checked(out, capacity, format, args);
    char rewritten[rewritten_capacity];
    const bool fits = rewrite_pointers(format, rewritten);
    return format_checked(out, capacity, fits ? rewritten : format, args);
}

}  // namespace kernel

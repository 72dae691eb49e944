#include <engine/filesystem/streams/ifile.h>

#include <cstdarg>
#include <limits>
#include <memory>

#include "engine/kernel/text.h"
#include "engine/filesystem/contract/error.h"

namespace fs {

namespace {

constexpr std::size_t first_size = 256;

/// The text with each "%%" made "%". False when it would need an argument, or is no format at all.
bool expand_without_arguments(const char* format, fs::string& out) {
    for (; *format != '\0'; ++format) {
        if (*format == '%' && *++format != '%') return false;
        out.push_back(*format);
    }
    return out.size() <= static_cast<std::size_t>(std::numeric_limits<int>::max());
}

int unprintable(const char* text) {
    set_error(EFSError::INVALID_ARGUMENT, "", text);
    return -1;
}

}  // namespace

int ifile::printf(const char* format, ...) {
    if (format == nullptr) format = "";
    va_list args;
    va_start(args, format);
    va_list again;
    va_copy(again, args);
    const int length = guarded(name(), -1, [&] {
        char small[first_size];
        const int needed = kernel::format_text(small, sizeof(small), format, args);
        if (needed < 0) return unprintable("The text cannot be formatted.");
        const auto size = static_cast<std::size_t>(needed);
        const std::unique_ptr<char[]> large(size < sizeof(small) ? nullptr : new char[size + 1]);
        if (large != nullptr) kernel::format_text(large.get(), size + 1, format, again);
        write(large != nullptr ? large.get() : small, size);
        return needed;
    });
    va_end(again);
    va_end(args);
    return length;
}

int ifile::printf(const ztl::string_base<char>& text) {
    return guarded(name(), -1, [&] {
        fs::string expanded;
        if (!expand_without_arguments(text.c_str(), expanded))
            return unprintable("The text is a format that wants arguments.");
        write(expanded.data(), expanded.size());
        return static_cast<int>(expanded.size());
    });
}

}  // namespace fs

#include <engine/filesystem/streams/ifile.h>

#include <cstdarg>
#include <cstdlib>
#include <limits>
#include <memory>
#include <new>

#include "engine/kernel/format.h"

namespace fs {

namespace {

struct FreeBlock {
    void operator()(char* block) const { std::free(block); }
};
using Block = std::unique_ptr<char, FreeBlock>;

constexpr std::size_t first_size = 256;
constexpr std::size_t last_retry_size = 1024 * 1024;

int format_into(char* out, std::size_t capacity, const char* format, va_list args) {
    va_list again;
    va_copy(again, args);
    const int length = kernel::format_text(out, capacity, format, again);
    va_end(again);
    return length;
}

/// Formats with twice the room each time that the formatter reports an error, up to a bound.
int retry_larger(Block& block, std::size_t& capacity, const char* format, va_list args) {
    int length = -1;
    while (length < 0 && capacity < last_retry_size) {
        capacity *= 2;
        block.reset(static_cast<char*>(std::malloc(capacity)));
        if (block == nullptr) return -1;
        length = format_into(block.get(), capacity, format, args);
    }
    return length;
}

/// The text with each "%%" made "%". False when it would need an argument, or is no format at all.
bool expand_without_arguments(const char* format, fs::string& out) {
    for (; *format != '\0'; ++format) {
        if (*format == '%' && *++format != '%') return false;
        out.push_back(*format);
    }
    return out.size() <= static_cast<std::size_t>(std::numeric_limits<int>::max());
}

}  // namespace

int ifile::printf(const char* format, ...) {
    if (format == nullptr) format = "";
    char small[first_size];
    Block block;
    std::size_t capacity = sizeof(small);
    va_list args;
    va_start(args, format);
    int length = format_into(small, capacity, format, args);
    if (length < 0) length = retry_larger(block, capacity, format, args);
    if (length >= 0 && static_cast<std::size_t>(length) >= capacity) {
        capacity = static_cast<std::size_t>(length) + 1;
        block.reset(static_cast<char*>(std::malloc(capacity)));
        length = block == nullptr ? -1 : format_into(block.get(), capacity, format, args);
    }
    va_end(args);
    if (length < 0) return -1;
    write(block == nullptr ? small : block.get(), static_cast<std::uint64_t>(length));
    return length;
}

int ifile::printf(const ztl::string_base<char>& text) {
    try {
        fs::string expanded;
        if (!expand_without_arguments(text.c_str(), expanded)) return -1;
        write(expanded.data(), expanded.size());
        return static_cast<int>(expanded.size());
    } catch (const std::bad_alloc&) {
        return -1;
    }
}

}  // namespace fs

#pragma once

#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace platform {

/// Text in a fixed buffer, cut at its end. Safe in a signal handler, as everything here.
class FixedText {
public:
    FixedText(char* buffer, std::size_t capacity) : buffer_(buffer), capacity_(capacity) { buffer_[0] = '\0'; }

    FixedText& add(const char* text) { return add(text, std::strlen(text)); }
    FixedText& add(const char* text, std::size_t length) {
        if (length > capacity_ - 1 - size_) length = capacity_ - 1 - size_;
        std::memcpy(buffer_ + size_, text, length);
        size_ += length;
        buffer_[size_] = '\0';
        return *this;
    }
    FixedText& add_number(std::uint64_t value, unsigned base = 10, int width = 0) {
        char digits[64];
        int count = 0;
        for (; value != 0 || count == 0; value /= base) digits[count++] = "0123456789abcdef"[value % base];
        for (; width > count; --width) add("0", 1);
        while (count > 0) add(&digits[--count], 1);
        return *this;
    }
    FixedText& add_hex(std::uint64_t value, int width = 0) { return add("0x").add_number(value, 16, width); }

    const char* text() const { return buffer_; }
    std::size_t size() const { return size_; }

private:
    char* buffer_;
    std::size_t capacity_;
    std::size_t size_ = 0;
};

/// Writes all of it; false when the system refuses.
inline bool write_fully(int descriptor, const char* text, std::size_t length) {
    while (length > 0) {
        const ssize_t written = write(descriptor, text, length);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        text += written;
        length -= static_cast<std::size_t>(written);
    }
    return true;
}

/// Bytes read at an offset, less than `size` at the end of the file or on failure.
inline std::size_t read_fully(int descriptor, void* buffer, std::size_t size, std::uint64_t offset) {
    std::size_t done = 0;
    while (done < size) {
        const ssize_t got =
            pread(descriptor, static_cast<char*>(buffer) + done, size - done, static_cast<off_t>(offset + done));
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) break;
        done += static_cast<std::size_t>(got);
    }
    return done;
}

}  // namespace platform

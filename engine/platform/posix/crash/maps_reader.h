#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace platform {

/// One line of /proc/self/maps.
struct Mapping {
    std::uint64_t start = 0;
    std::uint64_t end = 0;
    std::uint64_t offset = 0;
    bool is_executable = false;
    const char* path = "";  // into the reader, until the next line
};

/// Reads the process's mappings line by line. Safe in a signal handler.
class MapsReader {
public:
    MapsReader() : file_(open("/proc/self/maps", O_RDONLY | O_CLOEXEC)) {}
    ~MapsReader() {
        if (file_ >= 0) close(file_);
    }
    MapsReader(const MapsReader&) = delete;
    MapsReader& operator=(const MapsReader&) = delete;

    bool next(Mapping& out) {
        if (!read_line()) return false;
        const char* at = line_;
        out.start = take_hex(at);
        ++at;  // '-'
        out.end = take_hex(at);
        out.is_executable = std::strlen(at) > 4 && at[3] == 'x';
        skip_field(at);
        out.offset = take_hex(at);
        skip_field(at);  // device
        skip_field(at);  // inode
        out.path = at;
        return true;
    }
    const char* line() const { return line_; }

private:
    static std::uint64_t take_hex(const char*& at) {
        std::uint64_t value = 0;
        for (;; ++at) {
            const char c = *at;
            if (c >= '0' && c <= '9')
                value = value * 16 + static_cast<std::uint64_t>(c - '0');
            else if (c >= 'a' && c <= 'f')
                value = value * 16 + static_cast<std::uint64_t>(c - 'a' + 10);
            else
                return value;
        }
    }
    static void skip_field(const char*& at) {
        while (*at == ' ') ++at;
        while (*at != '\0' && *at != ' ') ++at;
        while (*at == ' ') ++at;
    }
    bool read_line() {
        std::size_t length = 0;
        for (char c = 0; take_character(c);) {
            if (c == '\n') {
                line_[length] = '\0';
                return true;
            }
            if (length < sizeof(line_) - 1) line_[length++] = c;
        }
        return false;
    }
    bool take_character(char& out) {
        if (used_ == filled_) {
            ssize_t got = 0;
            do got = file_ < 0 ? 0 : read(file_, buffer_, sizeof(buffer_));
            while (got < 0 && errno == EINTR);
            if (got <= 0) return false;
            filled_ = static_cast<std::size_t>(got);
            used_ = 0;
        }
        out = buffer_[used_++];
        return true;
    }

    int file_;
    char buffer_[1024];
    std::size_t filled_ = 0;
    std::size_t used_ = 0;
    char line_[700] = "";
};

}  // namespace platform

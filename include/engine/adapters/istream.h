#pragma once

// std::istream over files of the engine's file system, for parsers that take one. C++11, any compiler.
//
//     enginefs::ifstream in("levels/one.json");
//     if (!in) std::puts(enginefs_reason());
//
// Nothing found, a failed read and the end are three things: a stream that could not be opened has failbit, one whose disk
// failed or whose pack is damaged has badbit, and the end is eofbit as ever. enginefs_reason() tells why. Whoever reads past
// the stream, by std::istreambuf_iterator for one, meets such a failure as std::ios_base::failure.
//
// Threads    one stream is for one thread at a time.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <ios>
#include <istream>
#include <limits>
#include <streambuf>
#include <vector>

#include <engine/adapters/base.h>

namespace enginefs {

/// The buffer of such a stream. It owns the file, reads `buffer_size` bytes ahead, and larger pieces past its buffer.
class filebuf : public std::streambuf {
public:
    /// `flags` are ENGINEFS_OPEN_. Without SEEKABLE, stored entries of packs cannot be sought in backwards.
    explicit filebuf(const char* path, std::uint32_t flags = ENGINEFS_OPEN_SEEKABLE,
                     std::size_t buffer_size = 16 * 1024)
        : file_(enginefs_open(path, ENGINEFS_READ, flags)), buffer_(buffer_size != 0 ? buffer_size : 1) {}
    ~filebuf() override {
        if (is_open()) enginefs_close(file_);
    }
    filebuf(const filebuf&) = delete;
    filebuf& operator=(const filebuf&) = delete;

    bool is_open() const { return file_ != nullptr; }

protected:
    int_type underflow() override {
        setg(nullptr, nullptr, nullptr);  // should the read fail
        const std::size_t got = read(buffer_.data(), buffer_.size());
        setg(buffer_.data(), buffer_.data(), buffer_.data() + got);
        return got != 0 ? traits_type::to_int_type(*gptr()) : traits_type::eof();
    }

    std::streamsize xsgetn(char* to, std::streamsize size) override {
        const std::streamsize ready = egptr() - gptr();
        if (size - ready < static_cast<std::streamsize>(buffer_.size())) return std::streambuf::xsgetn(to, size);
        if (ready != 0) std::memcpy(to, gptr(), static_cast<std::size_t>(ready));
        setg(nullptr, nullptr, nullptr);
        return ready + static_cast<std::streamsize>(read(to + ready, static_cast<std::size_t>(size - ready)));
    }

    pos_type seekoff(off_type offset, std::ios_base::seekdir origin, std::ios_base::openmode mode) override {
        if (!is_open() || (mode & std::ios_base::in) == 0) return pos_type(off_type(-1));
        off_type base = 0;
        if (origin == std::ios_base::cur) base = enginefs_tell(file_) - (egptr() - gptr());
        if (origin == std::ios_base::end) base = enginefs_length(file_);
        const off_type most = std::numeric_limits<off_type>::max();
        if (base < 0 || offset < -base || offset > most - base) return pos_type(off_type(-1));
        return seek(base + offset);
    }

    pos_type seekpos(pos_type position, std::ios_base::openmode mode) override {
        return seekoff(off_type(position), std::ios_base::beg, mode);
    }

private:
    /// What the buffer holds stays where the new position lies in it.
    pos_type seek(off_type to) {
        const off_type end = enginefs_tell(file_);
        if (end >= 0 && to <= end && end - to <= egptr() - eback()) {
            setg(eback(), egptr() - (end - to), egptr());
            return pos_type(to);
        }
        if (enginefs_seek(file_, to, ENGINEFS_SEEK_BEGIN) != 0) return pos_type(off_type(-1));
        setg(nullptr, nullptr, nullptr);
        return pos_type(to);
    }

    /// The stream that calls this turns the exception into its badbit, which is how a buffer tells of a failure.
    std::size_t read(char* to, std::size_t size) {
        const std::int64_t got = is_open() ? enginefs_read(file_, to, size) : 0;
        if (got < 0) throw std::ios_base::failure(enginefs_reason());
        return static_cast<std::size_t>(got);
    }

    enginefs_file* file_;
    std::vector<char> buffer_;
};

/// An input stream of one file.
class ifstream : private filebuf, public std::istream {
public:
    /// Opens `path` as enginefs_open does. A stream whose file could not be opened has failbit.
    explicit ifstream(const char* path, std::uint32_t flags = ENGINEFS_OPEN_SEEKABLE)
        : filebuf(path, flags), std::istream(static_cast<std::streambuf*>(this)) {
        if (!is_open()) setstate(std::ios_base::failbit);
    }
    using filebuf::is_open;
};

}  // namespace enginefs

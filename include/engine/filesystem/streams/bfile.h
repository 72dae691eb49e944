#pragma once

#include <cstdint>
#include <memory>

#include <engine/filesystem/api.h>
#include <engine/filesystem/streams/ifile.h>

namespace fs {

/// A stream with one buffer straight over a native file; no source is asked. Reads and writes share the buffer, in any
/// order and at any place; length and position count what is still pending.
///
/// Modes    as for every open: APPEND must exist and starts at the end, WRITE truncates. Gzip flags fail.
/// Failure  every read, write or open that fails sets fs::last_error; the end of the file never does. Bytes that could
///          not be written stay pending and are tried again; the call that needed the room returns what it took, or all
///          bits set when that is nothing.
/// Threads  one at a time.
class ENGINE_FS_API bfile_win32 : public ifile {
public:
    static constexpr std::uint32_t default_buffer_size = 64 * 1024;

    /// `buffer_size` in bytes, one at least; the buffer lives while a file is open.
    explicit bfile_win32(std::uint32_t buffer_size = default_buffer_size);
    /// Closes.
    ~bfile_win32() override;
    bfile_win32(const bfile_win32&) = delete;
    bfile_win32& operator=(const bfile_win32&) = delete;

    /// `name` is a native path. Closes a file that is open, whatever comes of it.
    bool open(const char* name, EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags = FFSOpenFlags::NONE) override;
    /// Writes what is pending; failed() and fs::last_error say when that could not be done, and it is lost.
    void close() override;
    std::uint64_t length() override;
    std::uint64_t tell() override;
    /// Past the end is allowed, below 0 is not. A gap that is then written over reads as zeros.
    bool seek(std::int64_t offset, EFSSeek::TYPE origin) override;
    std::uint64_t read(void* buffer, std::uint64_t size) override;
    std::uint64_t write(const void* data, std::uint64_t size) override;
    /// Nothing happens unless the file is open for writing; failed() tells.
    void set_eof() override;
    /// The path as open was given it, until close; null when no file is open.
    const char* name() const override;

    bool is_open() const { return state_ != nullptr; }
    /// Hands what is pending to the system. False when not all of it could be written.
    bool flush();
    /// Whether bytes could not be written, or the end could not be set, and still is not; or was not at close.
    bool failed() const;

private:
    struct State;

    std::unique_ptr<State> state_;  // null while no file is open
    std::uint32_t buffer_size_;
    bool failed_ = false;  // when the file was closed
};

}  // namespace fs

#pragma once

#include <cstdint>

#include <engine/filesystem/api.h>
#include <engine/filesystem/streams/ifile.h>
#include <engine/kernel/ztl.h>

namespace fs {

/// A stream with one buffer straight over a native file; no source is asked. Reads and writes share the buffer, in any
/// order and at any place; length and position count what is still pending.
///
/// Modes    as for every open: APPEND must exist and starts at the end, WRITE truncates. Gzip flags are refused.
/// Failure  bytes that could not be written stay pending and are tried again; the call that needed the room returns what
///          it took, or all bits set when that is nothing. failed() tells the same, also after close. A read or write that
///          fails always sets fs::last_error; the end of the file never does.
class ENGINE_FS_API bfile_win32 : public ifile {
public:
    static constexpr std::uint32_t default_buffer_size = 64 * 1024;

    explicit bfile_win32(std::uint32_t buffer_size = default_buffer_size);
    /// Closes.
    ~bfile_win32() override;
    bfile_win32(const bfile_win32&) = delete;
    bfile_win32& operator=(const bfile_win32&) = delete;

    /// `name` is a native path. Closes a file that is open.
    bool open(const char* name, EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags = FFSOpenFlags::NONE) override;
    /// Writes what is pending; failed() and fs::last_error say when that could not be done.
    void close() override;
    std::uint64_t length() override;
    std::uint64_t tell() override;
    /// Past the end is allowed, below 0 is not. A gap that is then written over reads as zeros.
    bool seek(std::int64_t offset, EFSSeek::TYPE origin) override;
    std::uint64_t read(void* buffer, std::uint64_t size) override;
    std::uint64_t write(const void* data, std::uint64_t size) override;
    void set_eof() override;
    const char* name() const override;

    bool is_open() const { return native_ != nullptr; }
    /// Hands what is pending to the system. False when not all of it could be written.
    bool flush();
    /// Whether bytes could not be written, and still are not; or were not when the file was closed.
    bool failed() const { return failed_; }

private:
    struct Native;

    static constexpr std::uint64_t window_filled = UINT64_MAX - 1;

    bool start(EFSMode::TYPE mode);
    void release();
    void move_window(std::uint64_t base);
    std::uint64_t write_native(const std::uint8_t* data, std::uint64_t size, std::uint64_t offset);
    [[gnu::noinline]] std::uint64_t read_on(std::uint8_t* out, std::uint64_t size);
    std::uint64_t fetch(std::uint8_t* out, std::uint64_t size);
    [[gnu::noinline]] std::uint64_t write_on(const std::uint8_t* data, std::uint64_t size);
    void put(const std::uint8_t* data, std::uint32_t size);

    Native* native_ = nullptr;
    std::uint8_t* buffer_ = nullptr;
    std::uint32_t buffer_size_;
    // The buffer holds the file's bytes [base_, base_ + valid_); of these, [dirty_begin_, dirty_end_) counted from
    // base_ are pending.
    std::uint32_t valid_ = 0;
    std::uint32_t dirty_begin_ = 0;
    std::uint32_t dirty_end_ = 0;
    bool readable_ = false;
    bool writable_ = false;
    bool failed_ = false;
    std::uint64_t base_ = 0;
    std::uint64_t pos_ = 0;
    std::uint64_t length_ = 0;  // with what is pending
    ztl::string_base<char> name_;
};

}  // namespace fs

#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>

#include <engine/filesystem/api.h>
#include <engine/filesystem/contract/error.h>
#include <engine/filesystem/streams/file.h>

namespace fs {

// read and write of these classes are in the header because typed values of four bytes are what they exist for: where
// the compiler knows the class, such a value costs a comparison and a copy.

/// The part of a file that a cached stream has in memory. It belongs to the streams; callers leave it alone.
struct stream_window {
    std::uint8_t* bytes = nullptr;
    std::uint8_t* next = nullptr;  // the stream's position
    std::uint8_t* end = nullptr;   // of what can be read, or of the room for writing
    std::uint64_t base = 0;        // position of `bytes` in the file

    std::uint64_t used() const { return static_cast<std::uint64_t>(next - bytes); }
    std::uint64_t left() const { return static_cast<std::uint64_t>(end - next); }
    std::uint64_t position() const { return base + used(); }

    // A value of four bytes, unless it would use the window up: there is more to do then.
    bool take(void* value) {
        if (end - next <= 4) return false;
        std::memcpy(value, next, 4);
        next += 4;
        return true;
    }
    bool put(const void* value) {
        if (end - next <= 4) return false;
        std::memcpy(next, value, 4);
        next += 4;
        return true;
    }
};

/// Reads an open file in blocks of `buffer_size` bytes into memory aligned for unbuffered handles. READ only.
///
/// The next block is fetched as soon as one is used up, never past the length that the file had when it was opened.
///
/// Failure  a block that cannot be read makes the read that needs it return what it got before, or all bits set; either
///          way fs::last_error says why, and the end of the file never sets it. A later read tries again.
/// Threads  one at a time.
class ENGINE_FS_API cachedrdfile : public file {
public:
    explicit cachedrdfile(unsigned buffer_size);
    ~cachedrdfile() override;

    /// False, with the reason in fs::last_error, for every other mode than READ and when the file cannot be opened; a
    /// first block that cannot be read is told by the first read.
    bool open(const char* name, EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags = FFSOpenFlags::NONE) override;
    void close() override;
    std::uint64_t tell() override;
    /// False at or past the end, which then is the position. END counts back from the end whatever the sign of
    /// `offset`.
    bool seek(std::int64_t offset, EFSSeek::TYPE origin) override;
    std::uint64_t read(void* buffer, std::uint64_t size) override {
        if (size == 4 && window_.take(buffer)) return 4;
        return read_any(static_cast<std::uint8_t*>(buffer), size);
    }
    /// Also reads the first block; false, with the file taken over, when that fails.
    bool open_from_handle(SFsFile* handle) override;

private:
    bool fetch();
    void fetch_ahead();
    void releasebuffer();
    void reallocate();
    void forget_block();
    bool move_to(std::uint64_t position);
    [[gnu::noinline]] std::uint64_t read_any(std::uint8_t* out, std::uint64_t size);

    stream_window window_;  // the block
    std::uint64_t file_length_ = 0;
    std::uint32_t buffer_size_;
    bool failed_ = false;  // the block could not be read
};

/// Collects what is written and hands it to the file each time `buffer_size` bytes are there, and at close. No seeking.
///
/// Failure  `write` takes everything, unless there is no memory for the buffer: all bits set then, OUT_OF_MEMORY. When the
///          file did not take it, fs::last_error says so at once, and close says it again: DISK_FULL when the disk is.
/// Threads  one at a time.
class ENGINE_FS_API cachedwrnoseekfile : public file {
public:
    explicit cachedwrnoseekfile(unsigned buffer_size);
    /// Hands over what is left; call close to hear whether that worked.
    ~cachedwrnoseekfile() override;

    void close() override;
    /// With what is still in the buffer.
    std::uint64_t tell() override;
    bool seek(std::int64_t offset, EFSSeek::TYPE origin) override;  // false
    std::uint64_t write(const void* data, std::uint64_t size) override {
        if (size == 4 && window_.put(data)) return 4;
        return write_any(static_cast<const std::uint8_t*>(data), size);
    }

private:
    void flush();
    void releasebuffer();
    void reallocate();
    [[gnu::noinline]] std::uint64_t write_any(const std::uint8_t* data, std::uint64_t size);

    stream_window window_;  // the buffer
    std::uint32_t buffer_size_;
    EFSError::TYPE lost_ = EFSError::NONE;  // why bytes could not be handed over
};

/// Keeps all that is written in memory and hands it to the file in one piece at close: the file then ends at the
/// position, so bytes behind a position that was moved back are dropped, on purpose.
///
/// The image grows by `grow_step` bytes at a time; END counts from its capacity, not from what was written.
///
/// Failure  a write outside the image, or without memory, returns what it took, or all bits set; fs::last_error says why.
///          When the file does not take the image, close leaves the reason there: DISK_FULL when the disk is.
/// Threads  one at a time.
class ENGINE_FS_API cachedwrfile : public file {
public:
    explicit cachedwrfile(std::uint64_t grow_step);
    /// Hands the image over; call close to hear whether that worked.
    ~cachedwrfile() override;

    void close() override;
    std::uint64_t tell() override;
    /// True, also outside the image, which CURRENT alone makes larger. False without the memory for that.
    bool seek(std::int64_t offset, EFSSeek::TYPE origin) override;
    std::uint64_t write(const void* data, std::uint64_t size) override {
        if (size == 4 && window_.put(data)) return 4;
        return write_any(static_cast<const std::uint8_t*>(data), size);
    }

private:
    struct Image;

    void flush();
    void releasebuffer();
    bool reallocate();
    bool grow_by(std::uint64_t size);
    std::uint64_t capacity() const;
    void note_written();
    void stand_at(std::uint64_t position);
    [[gnu::noinline]] std::uint64_t write_any(const std::uint8_t* data, std::uint64_t size);

    stream_window window_;  // the image, or nothing where the position lies outside
    std::unique_ptr<Image> image_;
    std::uint64_t grow_step_;
};

}  // namespace fs

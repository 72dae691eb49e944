#pragma once

#include <cstdint>
#include <cstring>

#include <engine/filesystem/api.h>
#include <engine/filesystem/contract/error.h>
#include <engine/filesystem/streams/file.h>

namespace fs {

// read and write of these classes are in the header because typed values of four bytes are what they exist for: where
// the compiler knows the class, such a value costs a comparison and a copy.

/// Reads an open file in blocks of `buffer_size` bytes into memory aligned for unbuffered handles. READ only.
///
/// The next block is fetched as soon as one is used up, never past the length that the file had when it was opened. A
/// block that cannot be read makes the read that needs it return what it got before, or all bits set; either way
/// fs::last_error says why, and the end of the file never sets it.
class ENGINE_FS_API cachedrdfile : public file {
public:
    explicit cachedrdfile(unsigned buffer_size);
    ~cachedrdfile() override;

    bool open(const char* name, EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags = FFSOpenFlags::NONE) override;
    void close() override;
    std::uint64_t tell() override;
    /// False at or past the end, which then is the position. END counts back from the end whatever the sign of
    /// `offset`.
    bool seek(std::int64_t offset, EFSSeek::TYPE origin) override;
    std::uint64_t read(void* buffer, std::uint64_t size) override {
        const std::uint8_t* const from = cursor_;
        if (size != 4 || end_ - from <= 4) return read_any(static_cast<std::uint8_t*>(buffer), size);
        std::memcpy(buffer, from, 4);
        cursor_ = from + 4;
        return 4;
    }
    /// Also reads the first block; false when that fails.
    bool open_from_handle(SFsFile* handle) override;

private:
    bool fetch();
    void releasebuffer();
    void reallocate();
    void forget_block();
    bool move_to(std::uint64_t position);
    [[gnu::noinline]] std::uint64_t read_any(std::uint8_t* out, std::uint64_t size);
    std::uint64_t read_blocks(std::uint8_t* out, std::uint64_t size);

    std::uint8_t* buffer_ = nullptr;
    const std::uint8_t* cursor_ = nullptr;  // next byte of the block
    const std::uint8_t* end_ = nullptr;     // behind its last byte
    std::uint64_t block_position_ = 0;      // of the block's first byte in the file
    std::uint64_t file_length_ = 0;
    std::uint32_t buffer_size_;
    bool failed_ = false;  // the block could not be read
};

/// Collects what is written and hands it to the file each time `buffer_size` bytes are there, and at close. No seeking.
/// `write` always takes everything. When the file did not, fs::last_error says so at once and again after close: it
/// is DISK_FULL when the disk is.
class ENGINE_FS_API cachedwrnoseekfile : public file {
public:
    explicit cachedwrnoseekfile(unsigned buffer_size);
    ~cachedwrnoseekfile() override;

    void close() override;
    std::uint64_t tell() override;
    bool seek(std::int64_t offset, EFSSeek::TYPE origin) override;
    std::uint64_t write(const void* data, std::uint64_t size) override {
        const std::uint32_t at = used_;
        if (size != 4 || buffer_size_ - at <= 4) return write_blocks(static_cast<const std::uint8_t*>(data), size);
        std::memcpy(buffer_ + at, data, 4);
        used_ = at + 4;
        return 4;
    }

private:
    void flush();
    void releasebuffer();
    void reallocate();
    [[gnu::noinline]] std::uint64_t write_blocks(const std::uint8_t* data, std::uint64_t size);

    std::uint8_t* buffer_ = nullptr;
    std::uint32_t buffer_size_;
    std::uint32_t used_ = 0;
    EFSError::TYPE lost_ = EFSError::NONE;  // why bytes could not be handed over
};

/// Keeps all that is written in memory and hands it to the file in one piece at close: the file then ends at the
/// position, so bytes behind a position that was moved back are dropped, on purpose. When the file does not take it all,
/// close leaves the reason in fs::last_error.
///
/// The image grows by `grow_step` bytes at a time; END counts from its capacity, not from what was written. A write
/// outside the image is refused.
class ENGINE_FS_API cachedwrfile : public file {
public:
    explicit cachedwrfile(std::uint64_t grow_step);
    ~cachedwrfile() override;

    void close() override;
    std::uint64_t tell() override;
    bool seek(std::int64_t offset, EFSSeek::TYPE origin) override;
    std::uint64_t write(const void* data, std::uint64_t size) override {
        const std::uint64_t at = pos_;
        if (size != 4 || at >= short_end_) return write_any(static_cast<const std::uint8_t*>(data), size);
        std::memcpy(buffer_ + at, data, 4);
        pos_ = at + 4;
        return 4;
    }

private:
    void flush();
    void releasebuffer();
    bool reallocate();
    bool grow_to(std::uint64_t capacity);
    void note_written();
    void allow_short_way();
    bool move(std::int64_t offset, EFSSeek::TYPE origin);
    void fill_gap(std::uint64_t end);
    std::uint64_t write_into_image(const std::uint8_t* data, std::uint64_t size);
    [[gnu::noinline]] std::uint64_t write_any(const std::uint8_t* data, std::uint64_t size);

    std::uint8_t* buffer_ = nullptr;
    std::uint64_t pos_ = 0;
    std::uint64_t short_end_ = 0;  // a value of four bytes that begins below here is just copied; 0 behind a gap
    std::uint64_t written_ = 0;    // up to here the image has been written, short values since then not counted
    std::uint64_t capacity_ = 0;   // what the stream counts with: a multiple of the step
    std::uint64_t allocated_ = 0;  // what the buffer holds
    std::uint64_t grow_step_;
};

}  // namespace fs

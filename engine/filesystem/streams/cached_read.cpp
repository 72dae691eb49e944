// The reader's block. cursor_ and end_ bound the bytes that may be delivered, so that the fast path of read is one
// comparison; the block is block_position_ bytes into the file, and what lies between buffer_ and cursor_ has been
// read.
#include <algorithm>
#include <cstring>
#include <new>

#include <engine/filesystem/access/open.h>
#include <engine/filesystem/streams/cached.h>

#include "engine/filesystem/streams/failure.h"

namespace fs {

namespace {

constexpr std::align_val_t block_alignment{4096};  // what unbuffered handles ask for

}  // namespace

cachedrdfile::cachedrdfile(unsigned buffer_size) : buffer_size_(buffer_size) { reallocate(); }

cachedrdfile::~cachedrdfile() { releasebuffer(); }

void cachedrdfile::reallocate() {
    releasebuffer();
    buffer_ = static_cast<std::uint8_t*>(::operator new(buffer_size_, block_alignment, std::nothrow));
    forget_block();
}

void cachedrdfile::releasebuffer() {
    ::operator delete(buffer_, block_alignment);
    buffer_ = nullptr;
    forget_block();
}

void cachedrdfile::forget_block() { cursor_ = end_ = buffer_; }

bool cachedrdfile::open(const char* name, EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags) {
    if (mode != EFSMode::READ) return false;
    SFsFile* const opened = fs::open(name, EFSMode::READ, flags);
    if (opened == nullptr) return false;
    open_from_handle(opened);
    return true;
}

bool cachedrdfile::open_from_handle(SFsFile* adopted) {
    handle = adopted;
    block_position_ = 0;
    file_length_ = fs::length(handle);
    return fetch();
}

void cachedrdfile::close() {
    file::close();
    block_position_ = 0;
    file_length_ = 0;
    failed_ = false;
    forget_block();
}

/// Reads the block at block_position_ and stands at its beginning.
bool cachedrdfile::fetch() {
    forget_block();
    failed_ = false;
    if (block_position_ == file_length_) return true;
    ErrorScope scope;
    const bool can_read = handle != nullptr && buffer_ != nullptr &&
                          handle->seek(static_cast<std::int64_t>(block_position_), EFSSeek::BEGIN);
    const std::uint64_t got = can_read ? handle->read(buffer_, buffer_size_) : failure;
    if (got > buffer_size_) {
        failed_ = true;
        if (scope.has_error()) return false;
        const EFSError::TYPE code = buffer_ == nullptr  ? EFSError::OUT_OF_MEMORY
                                    : handle == nullptr ? EFSError::INVALID_ARGUMENT
                                                        : EFSError::IO;
        return refuse(code, name(), "A block of the file cannot be read.");
    }
    // A file that has grown since it was opened still ends where it did.
    end_ = buffer_ + std::min(got, file_length_ - block_position_);
    return true;
}

std::uint64_t cachedrdfile::tell() { return block_position_ + static_cast<std::uint64_t>(cursor_ - buffer_); }

std::uint64_t cachedrdfile::read_any(std::uint8_t* out, std::uint64_t size) {
    if (size >= static_cast<std::uint64_t>(end_ - cursor_)) return read_blocks(out, size);
    if (size == 2) {  // the length of a text
        std::memcpy(out, cursor_, 2);
    } else {
        std::memcpy(out, cursor_, static_cast<std::size_t>(size));
    }
    cursor_ += size;
    return size;
}

/// Also when the block is just used up: the next one is fetched at once.
std::uint64_t cachedrdfile::read_blocks(std::uint8_t* out, std::uint64_t size) {
    if (handle == nullptr) return not_open();
    const std::uint64_t position = tell();
    if (position >= file_length_) return 0;
    size = std::min(size, file_length_ - position);
    std::uint64_t done = 0;
    while (done < size) {
        const auto now = std::min(size - done, static_cast<std::uint64_t>(end_ - cursor_));
        if (now != 0) std::memcpy(out + done, cursor_, static_cast<std::size_t>(now));
        cursor_ += now;
        done += now;
        if (cursor_ != end_) continue;
        block_position_ = tell();
        if (!fetch() && done == 0) return failure;
        if (cursor_ == end_) break;
    }
    return done;
}

bool cachedrdfile::move_to(std::uint64_t position) {
    block_position_ = position;
    forget_block();
    if (position >= file_length_) return false;
    fetch();
    return true;
}

bool cachedrdfile::seek(std::int64_t offset, EFSSeek::TYPE origin) {
    const auto distance = static_cast<std::uint64_t>(offset);
    const auto valid = static_cast<std::uint64_t>(end_ - buffer_);
    const auto inside = static_cast<std::uint64_t>(cursor_ - buffer_);
    switch (origin) {
        case EFSSeek::BEGIN:
            if (distance < block_position_ || distance - block_position_ >= valid) return move_to(distance);
            cursor_ = buffer_ + (distance - block_position_);
            return true;
        case EFSSeek::CURRENT: {
            // Whether the target lies in the block is decided in 32-bit arithmetic, so that a distance of a multiple of
            // 4 GiB is taken for none.
            const auto target = static_cast<std::int32_t>(static_cast<std::uint32_t>(inside + distance));
            if (failed_ || target < 0 || target >= static_cast<std::int32_t>(valid)) return move_to(tell() + distance);
            cursor_ = buffer_ + target;
            return true;
        }
        case EFSSeek::END:
            // The sign is ignored, on purpose: the position always counts back from the end.
            return move_to(file_length_ - (offset < 0 ? 0 - distance : distance));
    }
    return false;
}

}  // namespace fs

#include <algorithm>
#include <new>

#include <engine/filesystem/access/open.h>
#include <engine/filesystem/streams/cached.h>

#include "engine/filesystem/contract/error.h"

namespace fs {

namespace {

constexpr std::align_val_t block_alignment{4096};  // what unbuffered handles ask for

}  // namespace

cachedrdfile::cachedrdfile(unsigned buffer_size) : buffer_size_(buffer_size) { reallocate(); }

cachedrdfile::~cachedrdfile() { releasebuffer(); }

void cachedrdfile::reallocate() {
    releasebuffer();
    window_.bytes = static_cast<std::uint8_t*>(::operator new(buffer_size_, block_alignment, std::nothrow));
    forget_block();
}

void cachedrdfile::releasebuffer() {
    ::operator delete(window_.bytes, block_alignment);
    window_.bytes = nullptr;
    forget_block();
}

void cachedrdfile::forget_block() { window_.next = window_.end = window_.bytes; }

bool cachedrdfile::open(const char* name, EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags) {
    if (mode != EFSMode::READ) return refuse(EFSError::INVALID_ARGUMENT, name, "A cached reader only reads.");
    SFsFile* const opened = fs::open(name, EFSMode::READ, flags);
    if (opened == nullptr) return false;
    open_from_handle(opened);
    return true;
}

bool cachedrdfile::open_from_handle(SFsFile* adopted) {
    handle = adopted;
    window_.base = 0;
    file_length_ = fs::length(handle);
    return fetch();
}

void cachedrdfile::close() {
    file::close();
    window_.base = 0;
    file_length_ = 0;
    failed_ = false;
    forget_block();
}

/// Reads the block at the window's base and stands at its beginning.
bool cachedrdfile::fetch() {
    forget_block();
    failed_ = false;
    if (window_.base == file_length_) return true;
    ErrorScope scope;
    const bool can_read = handle != nullptr && window_.bytes != nullptr &&
                          handle->seek(static_cast<std::int64_t>(window_.base), EFSSeek::BEGIN);
    const std::uint64_t got = can_read ? handle->read(window_.bytes, buffer_size_) : failed_size;
    if (got > buffer_size_) {
        failed_ = true;
        const EFSError::TYPE code = window_.bytes == nullptr ? EFSError::OUT_OF_MEMORY
                                    : handle == nullptr      ? EFSError::INVALID_ARGUMENT
                                                             : EFSError::IO;
        return fail_unless_told(scope, code, name(), "A block of the file cannot be read.");
    }
    // A file that has grown since it was opened still ends where it did.
    window_.end = window_.bytes + std::min(got, file_length_ - window_.base);
    return true;
}

std::uint64_t cachedrdfile::tell() { return window_.position(); }

/// Also when the block is just used up: the next one is fetched at once.
std::uint64_t cachedrdfile::read_any(std::uint8_t* out, std::uint64_t size) {
    if (size < window_.left()) {
        if (size == 2)  // the length of a text
            std::memcpy(out, window_.next, 2);
        else
            std::memcpy(out, window_.next, static_cast<std::size_t>(size));
        window_.next += size;
        return size;
    }
    if (handle == nullptr) return not_open();
    const std::uint64_t position = tell();
    if (position >= file_length_) return 0;
    size = std::min(size, file_length_ - position);
    std::uint64_t done = 0;
    while (done < size) {
        const std::uint64_t now = std::min(size - done, window_.left());
        if (now != 0) std::memcpy(out + done, window_.next, static_cast<std::size_t>(now));
        window_.next += now;
        done += now;
        if (window_.left() != 0) continue;
        window_.base = tell();
        if (!fetch() && done == 0) return failed_size;
        if (window_.left() == 0) break;
    }
    return done;
}

bool cachedrdfile::move_to(std::uint64_t position) {
    window_.base = position;
    forget_block();
    if (position >= file_length_) return false;
    fetch();
    return true;
}

bool cachedrdfile::seek(std::int64_t offset, EFSSeek::TYPE origin) {
    const auto distance = static_cast<std::uint64_t>(offset);
    const std::uint64_t valid = window_.used() + window_.left();
    switch (origin) {
        case EFSSeek::BEGIN:
            if (distance < window_.base || distance - window_.base >= valid) return move_to(distance);
            window_.next = window_.bytes + (distance - window_.base);
            return true;
        case EFSSeek::CURRENT: {
            // Whether the target lies in the block is decided in 32-bit arithmetic, so that a distance of a multiple of
            // 4 GiB is taken for none.
            const auto target = static_cast<std::int32_t>(static_cast<std::uint32_t>(window_.used() + distance));
            if (failed_ || target < 0 || target >= static_cast<std::int32_t>(valid)) return move_to(tell() + distance);
            window_.next = window_.bytes + target;
            return true;
        }
        case EFSSeek::END:
            // The sign is ignored, on purpose: the position always counts back from the end.
            return move_to(file_length_ - (offset < 0 ? 0 - distance : distance));
    }
    return false;
}

}  // namespace fs

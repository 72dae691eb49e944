#include <algorithm>
#include <cstdlib>
#include <cstring>

#include <engine/filesystem/streams/cached.h>

#include "engine/filesystem/contract/set_error.h"
#include "engine/filesystem/streams/image_block.h"
#include "engine/filesystem/streams/write_all.h"

namespace fs {

namespace {

constexpr std::uint64_t failure = UINT64_MAX;

void copy(std::uint8_t* to, const std::uint8_t* from, std::uint64_t size) {
    if (size != 0) std::memcpy(to, from, static_cast<std::size_t>(size));
}

std::uint64_t without_memory() {
    set_error(EFSError::OUT_OF_MEMORY, "", "There is no memory for what is written.");
    return failure;
}

}  // namespace

cachedwrnoseekfile::cachedwrnoseekfile(unsigned buffer_size) : buffer_size_(buffer_size) { reallocate(); }

cachedwrnoseekfile::~cachedwrnoseekfile() {
    flush();
    releasebuffer();
}

void cachedwrnoseekfile::reallocate() {
    releasebuffer();
    buffer_ = buffer_size_ == 0 ? nullptr : static_cast<std::uint8_t*>(std::malloc(buffer_size_));
    if (buffer_ == nullptr) buffer_size_ = 0;
}

void cachedwrnoseekfile::releasebuffer() {
    std::free(buffer_);
    buffer_ = nullptr;
}

void cachedwrnoseekfile::flush() {
    if (used_ != 0 && handle != nullptr && !write_all(*handle, buffer_, used_)) lost_ = last_error().code;
    used_ = 0;
}

void cachedwrnoseekfile::close() {
    flush();
    // The failure may lie many writes back.
    if (lost_ != EFSError::NONE) set_error(lost_, name(), "Bytes that were written to the stream are lost.");
    lost_ = EFSError::NONE;
    file::close();
}

std::uint64_t cachedwrnoseekfile::tell() { return fs::tell(handle) + used_; }

bool cachedwrnoseekfile::seek(std::int64_t, EFSSeek::TYPE) { return false; }

std::uint64_t cachedwrnoseekfile::write_blocks(const std::uint8_t* data, std::uint64_t size) {
    if (size == 0) return 0;
    if (buffer_size_ == 0) return without_memory();  // nothing to collect in
    std::uint64_t done = 0;
    while (done < size) {
        const auto now = static_cast<std::uint32_t>(std::min<std::uint64_t>(size - done, buffer_size_ - used_));
        std::memcpy(buffer_ + used_, data + done, now);
        used_ += now;
        done += now;
        if (used_ == buffer_size_) flush();
    }
    return size;
}

cachedwrfile::cachedwrfile(std::uint64_t grow_step) : grow_step_(grow_step) {
    reallocate();
    allow_short_way();
}

cachedwrfile::~cachedwrfile() {
    flush();
    releasebuffer();
}

bool cachedwrfile::reallocate() { return grow_step_ <= UINT64_MAX - capacity_ && grow_to(capacity_ + grow_step_); }

void cachedwrfile::releasebuffer() {
    free_image(buffer_, allocated_);
    buffer_ = nullptr;
    capacity_ = allocated_ = written_ = 0;
}

/// The image counts in steps; the memory behind it grows as suits it.
bool cachedwrfile::grow_to(std::uint64_t capacity) {
    if (!enlarge_image(buffer_, allocated_, capacity)) return false;
    capacity_ = capacity;
    return true;
}

/// Counts in what was written the short way. Each operation begins with this, and ends with allow_short_way.
void cachedwrfile::note_written() {
    if (short_end_ != 0) written_ = std::max(written_, pos_);
}

void cachedwrfile::allow_short_way() {
    constexpr std::uint64_t value_size = 4;
    const bool gap = pos_ > written_;
    short_end_ = gap || capacity_ < value_size ? 0 : capacity_ - value_size;
}

/// A seek may have left bytes below `end` (within the image) unwritten: they become zeros.
void cachedwrfile::fill_gap(std::uint64_t end) {
    if (end <= written_) return;
    std::memset(buffer_ + written_, 0, static_cast<std::size_t>(end - written_));
    written_ = end;
}

void cachedwrfile::flush() {
    note_written();
    const std::uint64_t size = std::min(pos_, capacity_);
    fill_gap(size);
    if (size != 0 && handle != nullptr) write_all(*handle, buffer_, size);
    pos_ = written_ = 0;
    allow_short_way();
}

void cachedwrfile::close() {
    flush();
    file::close();
}

std::uint64_t cachedwrfile::tell() { return pos_; }

bool cachedwrfile::seek(std::int64_t offset, EFSSeek::TYPE origin) {
    note_written();
    const bool moved = move(offset, origin);
    allow_short_way();
    return moved;
}

bool cachedwrfile::move(std::int64_t offset, EFSSeek::TYPE origin) {
    const auto distance = static_cast<std::uint64_t>(offset);
    switch (origin) {
        case EFSSeek::BEGIN:
            pos_ = distance;
            return true;
        case EFSSeek::CURRENT:
            if (offset > 0 && pos_ <= capacity_ && distance > capacity_ - pos_) {
                if (grow_step_ == 0) return false;
                const std::uint64_t steps = (distance - (capacity_ - pos_) - 1) / grow_step_ + 1;
                if (steps > (UINT64_MAX - capacity_) / grow_step_) return false;
                if (!grow_to(capacity_ + steps * grow_step_)) return false;
            }
            pos_ += distance;
            return true;
        case EFSSeek::END:
            pos_ = capacity_ + distance;
            return true;
    }
    return true;
}

std::uint64_t cachedwrfile::write_any(const std::uint8_t* data, std::uint64_t size) {
    note_written();
    const std::uint64_t taken = write_into_image(data, size);
    allow_short_way();
    return taken;
}

/// Grows as soon as the image is full. What can't be held is refused: all bits set when that is everything.
std::uint64_t cachedwrfile::write_into_image(const std::uint8_t* data, std::uint64_t size) {
    if (size == 0) return 0;
    if (pos_ > capacity_ || grow_step_ == 0) {
        set_error(EFSError::INVALID_ARGUMENT, "", "A cached writer does not write outside of its image.");
        return failure;
    }
    std::uint64_t taken = std::min(size, capacity_ - pos_);
    if (taken == capacity_ - pos_) {
        const std::uint64_t steps = (size - taken) / grow_step_ + 1;
        const bool fits = steps <= (UINT64_MAX - capacity_) / grow_step_ && grow_to(capacity_ + steps * grow_step_);
        if (fits)
            taken = size;
        else
            without_memory();
    }
    fill_gap(pos_);
    copy(buffer_ + pos_, data, taken);
    pos_ += taken;
    written_ = std::max(written_, pos_);
    return taken == 0 ? failure : taken;
}

}  // namespace fs

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

#include <engine/filesystem/streams/cached.h>

#include "engine/filesystem/contract/error.h"
#include "engine/filesystem/contract/file.h"
#include "engine/filesystem/streams/image_block.h"

namespace fs {

namespace {

void copy(std::uint8_t* to, const std::uint8_t* from, std::uint64_t size) {
    if (size != 0) std::memcpy(to, from, static_cast<std::size_t>(size));
}

std::uint64_t without_memory() { return fail(EFSError::OUT_OF_MEMORY, "There is no memory for what is written."); }

}  // namespace

cachedwrnoseekfile::cachedwrnoseekfile(unsigned buffer_size) : buffer_size_(buffer_size) { reallocate(); }

cachedwrnoseekfile::~cachedwrnoseekfile() {
    flush();
    releasebuffer();
}

void cachedwrnoseekfile::reallocate() {
    releasebuffer();
    window_.bytes = window_.next = static_cast<std::uint8_t*>(std::malloc(buffer_size_));
    window_.end = window_.bytes == nullptr ? nullptr : window_.bytes + buffer_size_;
}

void cachedwrnoseekfile::releasebuffer() {
    std::free(window_.bytes);
    window_ = {};
}

void cachedwrnoseekfile::flush() {
    const std::uint64_t size = window_.used();
    if (size != 0 && handle != nullptr && !write_all(*handle, file_name(handle), window_.bytes, size))
        lost_ = last_error().code;
    window_.next = window_.bytes;
}

void cachedwrnoseekfile::close() {
    flush();
    // The failure may lie many writes back.
    if (lost_ != EFSError::NONE) set_error(lost_, name(), "Bytes that were written to the stream are lost.");
    lost_ = EFSError::NONE;
    file::close();
}

std::uint64_t cachedwrnoseekfile::tell() { return fs::tell(handle) + window_.used(); }

bool cachedwrnoseekfile::seek(std::int64_t, EFSSeek::TYPE) { return false; }

std::uint64_t cachedwrnoseekfile::write_any(const std::uint8_t* data, std::uint64_t size) {
    if (size != 0 && window_.left() == 0) return without_memory();  // nothing to collect in
    for (std::uint64_t done = 0; done < size;) {
        const std::uint64_t now = std::min(size - done, window_.left());
        copy(window_.next, data + done, now);
        window_.next += now;
        done += now;
        if (window_.left() == 0) flush();
    }
    return size;
}

/// All that is written. Up to `written`, and up to the position where it lies inside, every byte has its value.
struct cachedwrfile::Image {
    std::uint8_t* bytes = nullptr;
    std::uint64_t capacity = 0;   // what the stream counts with: a multiple of the step
    std::uint64_t allocated = 0;  // what the memory holds; it grows as suits it
    std::uint64_t written = 0;
};

cachedwrfile::cachedwrfile(std::uint64_t grow_step) : grow_step_(grow_step) { reallocate(); }

cachedwrfile::~cachedwrfile() {
    flush();
    releasebuffer();
}

std::uint64_t cachedwrfile::capacity() const { return image_ == nullptr ? 0 : image_->capacity; }

/// By whole steps, at least `size` bytes; the position stays.
bool cachedwrfile::grow_by(std::uint64_t size) {
    if (grow_step_ == 0) return false;
    if (image_ == nullptr) image_.reset(new (std::nothrow) Image);
    const std::uint64_t steps = (size - 1) / grow_step_ + 1;
    if (image_ == nullptr || steps > (UINT64_MAX - capacity()) / grow_step_) return false;
    const std::uint64_t position = tell();
    if (!enlarge_image(image_->bytes, image_->allocated, capacity() + steps * grow_step_)) return false;
    image_->capacity += steps * grow_step_;
    stand_at(position);
    return true;
}

bool cachedwrfile::reallocate() { return grow_by(1); }

void cachedwrfile::releasebuffer() {
    if (image_ != nullptr) free_image(image_->bytes, image_->allocated);
    image_.reset();
    window_ = {};
}

void cachedwrfile::note_written() {
    if (image_ != nullptr && window_.bytes != nullptr) image_->written = std::max(image_->written, window_.used());
}

void cachedwrfile::stand_at(std::uint64_t position) {
    window_ = {.base = position};
    if (image_ == nullptr || position > image_->capacity) return;
    window_ = {.bytes = image_->bytes, .next = image_->bytes + position, .end = image_->bytes + image_->capacity};
}

void cachedwrfile::flush() {
    const std::uint64_t size = std::min(tell(), capacity());
    if (size != 0 && handle != nullptr) write_all(*handle, file_name(handle), image_->bytes, size);
    if (image_ != nullptr) image_->written = 0;
    stand_at(0);
}

void cachedwrfile::close() {
    flush();
    file::close();
}

std::uint64_t cachedwrfile::tell() { return window_.position(); }

bool cachedwrfile::seek(std::int64_t offset, EFSSeek::TYPE origin) {
    note_written();
    const auto distance = static_cast<std::uint64_t>(offset);
    std::uint64_t target = distance;
    if (origin == EFSSeek::CURRENT) {
        if (offset > 0 && tell() <= capacity() && distance > capacity() - tell() &&
            !grow_by(distance - (capacity() - tell())))
            return false;
        target += tell();
    }
    if (origin == EFSSeek::END) target += capacity();
    if (origin <= EFSSeek::END) stand_at(target);
    // What was never written, up to the new position, becomes zeros.
    const std::uint64_t end = std::min(tell(), capacity());
    if (image_ == nullptr || end <= image_->written) return true;
    std::memset(image_->bytes + image_->written, 0, static_cast<std::size_t>(end - image_->written));
    image_->written = end;
    return true;
}

/// Grows as soon as the image is full. What it cannot hold fails: all bits set when that is everything.
std::uint64_t cachedwrfile::write_any(const std::uint8_t* data, std::uint64_t size) {
    if (size == 0) return 0;
    if (tell() > capacity() || grow_step_ == 0)
        return fail(EFSError::INVALID_ARGUMENT, "A cached writer does not write outside of its image.");
    const std::uint64_t room = capacity() - tell();
    if (size >= room && !grow_by(size - room + 1)) {
        without_memory();
        size = room;
    }
    copy(window_.next, data, size);
    window_.next += size;
    return size == 0 ? failed_size : size;
}

}  // namespace fs

#include <engine/filesystem/streams/cached.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

#include <engine/filesystem/access/open.h>

#include "engine/filesystem/contract/failure.h"
#include "engine/filesystem/contract/open_file.h"
#include "engine/filesystem/streams/memory_limit.h"
#include "engine/platform/process.h"

namespace fs {

namespace {

constexpr std::align_val_t block_alignment{4096};            // what unbuffered handles ask for
constexpr std::uint64_t large_image = platform::block_step;  // from here on an image has a block of the system's

void copy(std::uint8_t* to, const std::uint8_t* from, std::uint64_t size) {
    if (size != 0) std::memcpy(to, from, static_cast<std::size_t>(size));
}

std::uint64_t without_memory() { return fail(EFSError::OUT_OF_MEMORY, "There is no memory for what is written."); }

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
    ErrorScope scope;
    open_from_handle(opened);
    scope.forget();  // whether the first block can be read is told by the first read
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

/// Nobody needs the block yet: when it cannot be read, the read that needs it tries again and tells.
void cachedrdfile::fetch_ahead() {
    ErrorScope scope;
    fetch();
    scope.forget();
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
        copy(out + done, window_.next, now);
        window_.next += now;
        done += now;
        if (window_.left() != 0) continue;
        window_.base = tell();
        if (done == size)
            fetch_ahead();
        else if (!fetch() && done == 0)
            return failed_size;
        if (window_.left() == 0) break;
    }
    return done;
}

bool cachedrdfile::move_to(std::uint64_t position) {
    window_.base = position;
    forget_block();
    if (position >= file_length_) return false;
    fetch_ahead();
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

/// All that is written. Up to `written`, and up to the position where it lies inside, every byte has its value. A small
/// image lies in the C allocator's memory, a large one in a block of the system's own, which grows without being copied
/// where the system can do that.
struct cachedwrfile::Image {
    Image() = default;
    Image(const Image&) = delete;
    Image& operator=(const Image&) = delete;
    ~Image() {
        if (allocated < large_image)
            std::free(bytes);
        else
            platform::free_block(bytes, static_cast<std::size_t>(allocated));
    }
    /// To `size` bytes at least. False without memory; nothing has changed then.
    bool enlarge(std::uint64_t size) {
        if (size <= allocated) return true;
        if (size > memory_limit) return false;
        // In proportion to the image: growing by small steps would move it over and over.
        const std::uint64_t generous = std::max(size, allocated * 2);
        return resize(generous) || (generous != size && resize(size));
    }

    std::uint8_t* bytes = nullptr;
    std::uint64_t capacity = 0;   // what the stream counts with: a multiple of the step
    std::uint64_t allocated = 0;  // what the memory holds; it grows as suits it
    std::uint64_t written = 0;

private:
    bool resize(std::uint64_t size) {
        const bool is_large = size >= large_image;
        if (is_large) size = (size + platform::block_step - 1) / platform::block_step * platform::block_step;
        const auto room = static_cast<std::size_t>(size);
        void* larger = nullptr;
        if (!is_large) {
            larger = std::realloc(bytes, room);
        } else if (allocated >= large_image) {
            larger = platform::grow_block(bytes, static_cast<std::size_t>(allocated), room);
        } else if (larger = platform::allocate_block(room); larger != nullptr) {
            copy(static_cast<std::uint8_t*>(larger), bytes, allocated);
            std::free(bytes);
        }
        if (larger == nullptr) return false;
        bytes = static_cast<std::uint8_t*>(larger);
        allocated = size;
        return true;
    }
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
    if (!image_->enlarge(capacity() + steps * grow_step_)) return false;
    image_->capacity += steps * grow_step_;
    stand_at(position);
    return true;
}

bool cachedwrfile::reallocate() { return grow_by(1); }

void cachedwrfile::releasebuffer() {
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

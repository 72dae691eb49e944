// One buffer over a native file: a window of the file that holds bytes read, bytes pending, or both. The pending ones
// are one run inside the window. Reading or writing inside the window touches memory only; stepping out of it first
// writes the run. The position is ours; the native one follows only when something is written.
#include <engine/filesystem/streams/bfile.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>

#include "engine/filesystem/contract/guarded.h"
#include "engine/filesystem/contract/set_error.h"
#include "engine/filesystem/streams/failure.h"
#include "engine/platform/files.h"

namespace fs {

namespace {

constexpr std::uint64_t largest_position = std::numeric_limits<std::int64_t>::max();
constexpr FFSOpenFlags::FLAGS gzip_flags =
    FFSOpenFlags::GZIP | FFSOpenFlags::GZIP_LEVEL1 | FFSOpenFlags::GZIP_LEVEL5 | FFSOpenFlags::GZIP_LEVEL9;

platform::OpenOptions options_for(EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags) {
    const bool create = (flags & FFSOpenFlags::CREATE) != 0;
    platform::OpenOptions options;
    options.write_through = (flags & FFSOpenFlags::WRITE_THROUGH) != 0;
    switch (mode) {
        case EFSMode::READ:
            break;
        case EFSMode::WRITE:
            options.access = platform::Access::WRITE;
            options.disposition =
                create ? platform::Disposition::CREATE_ALWAYS : platform::Disposition::TRUNCATE_EXISTING;
            break;
        case EFSMode::APPEND:
            options.access = platform::Access::WRITE;
            break;
        case EFSMode::READ_WRITE:
            options.access = platform::Access::READ_WRITE;
            if (create) options.disposition = platform::Disposition::CREATE_ALWAYS;
            break;
    }
    return options;
}

void copy(std::uint8_t* to, const std::uint8_t* from, std::uint64_t size) {
    if (size != 0) std::memcpy(to, from, static_cast<std::size_t>(size));
}

}  // namespace

struct bfile_win32::Native {
    platform::File file;
    std::uint64_t position = 0;  // where the system's own position stands
};

bfile_win32::bfile_win32(std::uint32_t buffer_size) : buffer_size_(std::max<std::uint32_t>(buffer_size, 1)) {}

bfile_win32::~bfile_win32() {
    close();
    std::free(buffer_);
}

bool bfile_win32::open(const char* name, EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags) {
    close();
    failed_ = false;
    if (name == nullptr) name = "";
    if (mode > EFSMode::READ_WRITE || (flags & gzip_flags) != 0) {
        set_error(EFSError::INVALID_ARGUMENT, name, "A buffered native stream knows no such mode, and no gzip.");
        return false;
    }
    // All that can fail comes before the open, which may empty the file.
    if (buffer_ == nullptr) buffer_ = static_cast<std::uint8_t*>(std::malloc(buffer_size_));
    const bool is_ready = buffer_ != nullptr && guarded(name, false, [&] {
                              name_ = name;
                              native_ = new Native;
                              return true;
                          });
    if (!is_ready) {
        set_error(EFSError::OUT_OF_MEMORY, name, "There is no memory for the stream's buffer.");
        return false;
    }
    native_->file = platform::File::open(name, options_for(mode, flags));
    if (!native_->file.valid()) {
        set_error_from_platform(name, "cannot be opened", platform::last_error());
        release();
        return false;
    }
    if (start(mode)) return true;
    set_error(EFSError::IO, name, "The length of the file is not known.");
    release();
    return false;
}

/// False when the length is not known: appending would write over the file's beginning.
bool bfile_win32::start(EFSMode::TYPE mode) {
    readable_ = mode == EFSMode::READ || mode == EFSMode::READ_WRITE;
    writable_ = mode != EFSMode::READ;
    length_ = native_->file.length();
    if (length_ > largest_position) return false;
    pos_ = mode == EFSMode::APPEND ? length_ : 0;
    base_ = pos_;
    return true;
}

void bfile_win32::release() {
    delete native_;
    native_ = nullptr;
    valid_ = dirty_begin_ = dirty_end_ = 0;
    readable_ = writable_ = false;
    base_ = pos_ = length_ = 0;
}

void bfile_win32::close() {
    if (native_ == nullptr) return;
    flush();
    release();
}

std::uint64_t bfile_win32::length() { return native_ == nullptr ? failure : length_; }

std::uint64_t bfile_win32::tell() { return native_ == nullptr ? failure : pos_; }

const char* bfile_win32::name() const { return native_ == nullptr ? nullptr : name_.c_str(); }

bool bfile_win32::seek(std::int64_t offset, EFSSeek::TYPE origin) {
    if (native_ == nullptr || origin > EFSSeek::END) return false;
    const std::uint64_t from = origin == EFSSeek::BEGIN ? 0 : origin == EFSSeek::CURRENT ? pos_ : length_;
    const std::uint64_t target = from + static_cast<std::uint64_t>(offset);
    if (target > largest_position) return false;
    pos_ = target;
    return true;
}

bool bfile_win32::flush() {
    if (native_ == nullptr) return !failed_;
    while (dirty_begin_ != dirty_end_) {
        const std::uint64_t written =
            write_native(buffer_ + dirty_begin_, dirty_end_ - dirty_begin_, base_ + dirty_begin_);
        if (written == failure) return false;
        dirty_begin_ += static_cast<std::uint32_t>(written);
    }
    dirty_begin_ = dirty_end_ = 0;
    failed_ = false;
    return true;
}

/// Bytes written, at least one; all bits set, with the failure kept, when there are none.
std::uint64_t bfile_win32::write_native(const std::uint8_t* data, std::uint64_t size, std::uint64_t offset) {
    platform::File& file = native_->file;
    std::uint64_t written = failure;
    if (native_->position == offset || file.seek(static_cast<std::int64_t>(offset), platform::Origin::BEGIN)) {
        native_->position = offset;
        written = file.write(data, size);
    }
    if (written == 0 || written > size) {
        failed_ = true;
        native_->position = failure;
        set_error_from_platform(name_.c_str(), "cannot be written", platform::last_error());
        return failure;
    }
    native_->position += written;
    return written;
}

void bfile_win32::set_eof() {
    if (native_ == nullptr || !writable_ || !flush()) return;
    platform::File& file = native_->file;
    if (!file.seek(static_cast<std::int64_t>(pos_), platform::Origin::BEGIN) || !file.set_end()) {
        native_->position = failure;
        failed_ = true;
        set_error_from_platform(name_.c_str(), "cannot be cut", platform::last_error());
        return;
    }
    native_->position = pos_;
    length_ = pos_;
    move_window(pos_);
}

/// Nothing may be pending.
void bfile_win32::move_window(std::uint64_t base) {
    base_ = base;
    valid_ = 0;
}

// Typed values are read four bytes at a time: that path makes no call, so that it needs no stack frame either.
std::uint64_t bfile_win32::read(void* buffer, std::uint64_t size) {
    const std::uint64_t inside = pos_ - base_;
    if (size != 4 || !readable_ || inside + 4 > valid_ || inside >= valid_)
        return read_on(static_cast<std::uint8_t*>(buffer), size);
    std::memcpy(buffer, buffer_ + inside, 4);
    pos_ += 4;
    return 4;
}

/// What the window holds, and then what must be fetched.
std::uint64_t bfile_win32::read_on(std::uint8_t* out, std::uint64_t size) {
    if (!readable_) return fail(EFSError::INVALID_ARGUMENT, "The stream is not open for reading.");
    std::uint64_t done = 0;
    while (done < size) {
        const std::uint64_t inside = pos_ - base_;
        std::uint64_t now = inside < valid_ ? std::min<std::uint64_t>(valid_ - inside, size - done) : 0;
        if (now != 0) {
            std::memcpy(out + done, buffer_ + inside, static_cast<std::size_t>(now));
        } else {
            now = fetch(out + done, size - done);
            if (now == failure) return done == 0 ? failure : done;
            if (now == 0) break;
            if (now == window_filled) continue;
        }
        done += now;
        pos_ += now;
    }
    return done;
}

/// Fills the window at the position, or reads a piece that is larger than it straight into the caller's memory. The
/// bytes so read, 0 at the end of the file, window_filled, or all bits set.
std::uint64_t bfile_win32::fetch(std::uint8_t* out, std::uint64_t size) {
    if (!flush()) return failure;
    const bool direct = size >= buffer_size_;
    if (!direct) move_window(pos_);
    const std::uint64_t got = native_->file.read_at(direct ? out : buffer_, direct ? size : buffer_size_, pos_);
    if (got > std::max<std::uint64_t>(size, buffer_size_)) {
        set_error_from_platform(name_.c_str(), "cannot be read", platform::last_error());
        return failure;
    }
    if (got != 0) length_ = std::max(length_, pos_ + got);
    if (direct || got == 0) return got;
    valid_ = static_cast<std::uint32_t>(got);
    return window_filled;
}

// Typed values that go on where the pending run ends are written without a call, see above.
std::uint64_t bfile_win32::write(const void* data, std::uint64_t size) {
    const std::uint64_t inside = pos_ - base_;
    const bool goes_on = inside == dirty_end_ && dirty_begin_ != dirty_end_ && inside == valid_ && pos_ == length_;
    if (size != 4 || !goes_on || buffer_size_ - inside < 4)
        return write_on(static_cast<const std::uint8_t*>(data), size);
    std::memcpy(buffer_ + inside, data, 4);
    valid_ = dirty_end_ = static_cast<std::uint32_t>(inside + 4);
    pos_ = length_ = pos_ + 4;
    return 4;
}

/// Writes into the window at the position, which lies in it or right behind it.
void bfile_win32::put(const std::uint8_t* data, std::uint32_t size) {
    if (size == 0) return;
    const auto from = static_cast<std::uint32_t>(pos_ - base_);
    const std::uint32_t to = from + size;
    copy(buffer_ + from, data, size);
    const bool clean = dirty_begin_ == dirty_end_;
    // Between two pending places the window holds the file's own bytes, so one run may cover both.
    dirty_begin_ = clean ? from : std::min(dirty_begin_, from);
    dirty_end_ = clean ? to : std::max(dirty_end_, to);
    valid_ = std::max(valid_, to);
    pos_ += size;
    length_ = std::max(length_, pos_);
}

std::uint64_t bfile_win32::write_on(const std::uint8_t* data, std::uint64_t size) {
    if (!writable_) return fail(EFSError::INVALID_ARGUMENT, "The stream is not open for writing.");
    if (size > largest_position - pos_) return fail(EFSError::TOO_LARGE, "No file is as long as this.");
    std::uint64_t done = 0;
    while (done < size) {
        const std::uint64_t inside = pos_ - base_;
        const std::uint64_t room = inside <= valid_ ? buffer_size_ - inside : 0;
        std::uint64_t now = std::min(room, size - done);
        if (now != 0) {
            put(data + done, static_cast<std::uint32_t>(now));
            done += now;
            continue;
        }
        if (!flush()) return done == 0 ? failure : done;
        move_window(pos_);
        if (size - done < buffer_size_) continue;
        now = write_native(data + done, size - done, pos_);
        if (now == failure) return done == 0 ? failure : done;
        done += now;
        pos_ += now;
        length_ = std::max(length_, pos_);
        move_window(pos_);
    }
    return done;
}

}  // namespace fs

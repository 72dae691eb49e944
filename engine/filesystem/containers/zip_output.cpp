#include "engine/filesystem/containers/zip_output.h"

#include <cstring>
#include <new>

namespace fs {

bool ZipOutput::open(const char* native_path) {
    buffer_.reset(new (std::nothrow) std::uint8_t[capacity]);
    if (!buffer_) return false;
    file_ = platform::File::open(native_path, {.access = platform::Access::WRITE,
                                               .disposition = platform::Disposition::CREATE_ALWAYS,
                                               .sharing = platform::Sharing::NONE});
    start_ = position_ = 0;
    used_ = 0;
    good_ = file_.valid();
    return good_;
}

bool ZipOutput::write_at(std::uint64_t offset, const void* data, std::size_t size) {
    if (!good_) return false;
    const bool follows = offset >= start_ && offset - start_ <= used_;
    const bool fits = follows && size <= capacity - static_cast<std::size_t>(offset - start_);
    if (!fits) {
        if (!flush()) return false;
        if (size >= capacity) {
            start_ = offset + size;
            return write_through(offset, data, size);
        }
        start_ = offset;
    }
    if (size == 0) return true;
    const auto at = static_cast<std::size_t>(offset - start_);
    std::memcpy(buffer_.get() + at, data, size);
    if (at + size > used_) used_ = at + size;
    return true;
}

bool ZipOutput::write_through(std::uint64_t offset, const void* data, std::size_t size) {
    if (position_ != offset) good_ = file_.seek(static_cast<std::int64_t>(offset), platform::Origin::BEGIN);
    good_ = good_ && file_.write(data, size) == size;
    position_ = offset + size;
    return good_;
}

bool ZipOutput::flush() {
    if (good_ && used_ != 0) write_through(start_, buffer_.get(), used_);
    start_ += used_;
    used_ = 0;
    return good_;
}

void ZipOutput::close() {
    file_.close();
    good_ = false;
}

}  // namespace fs

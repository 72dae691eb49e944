#include "engine/filesystem/containers/zip_output.h"

#include <algorithm>
#include <cstring>

#include "engine/filesystem/contract/set_error.h"

namespace fs {

bool ZipOutput::open(const char* native_path) {
    path_ = native_path;
    if (!buffer_) buffer_ = std::make_unique<std::uint8_t[]>(capacity);
    file_ = platform::File::open(native_path, {.access = platform::Access::WRITE,
                                               .disposition = platform::Disposition::TRUNCATE_OR_CREATE,
                                               .sharing = platform::Sharing::NONE});
    start_ = end_ = 0;
    used_ = 0;
    return file_.valid() || refuse_by_disk(native_path, "cannot be created for a zip file");
}

bool ZipOutput::fail() const { return refuse_by_disk(path_.c_str(), "cannot be written as a zip file"); }

bool ZipOutput::write_at(std::uint64_t offset, const void* data, std::size_t size) {
    const bool follows = offset >= start_ && offset - start_ <= used_;
    const bool fits = follows && size <= capacity - static_cast<std::size_t>(offset - start_);
    if (!fits) {
        if (!flush()) return false;
        if (size >= capacity) {
            if (!write_through(offset, data, size)) return false;
            start_ = offset + size;
            return true;
        }
        start_ = offset;
    }
    if (size == 0) return true;
    const auto at = static_cast<std::size_t>(offset - start_);
    std::memcpy(buffer_.get() + at, data, size);
    used_ = std::max(used_, at + size);
    return true;
}

bool ZipOutput::write_through(std::uint64_t offset, const void* data, std::size_t size) {
    end_ = std::max(end_, offset + size);
    const bool done =
        file_.seek(static_cast<std::int64_t>(offset), platform::Origin::BEGIN) && file_.write(data, size) == size;
    return done || fail();
}

bool ZipOutput::flush() {
    if (used_ != 0 && !write_through(start_, buffer_.get(), used_)) return false;
    start_ += used_;
    used_ = 0;
    return true;
}

bool ZipOutput::finish(std::uint64_t size) {
    if (!flush()) return false;
    if (end_ <= size) return true;
    const bool cut = file_.seek(static_cast<std::int64_t>(size), platform::Origin::BEGIN) && file_.set_end();
    return cut || fail();
}

}  // namespace fs

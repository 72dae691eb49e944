// Reads and writes of a multi-container's file, which may be of any source.
#include "engine/filesystem/containers/container_file.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "engine/filesystem/contract/failure.h"
#include "engine/filesystem/contract/open_file.h"
#include "engine/filesystem/contract/path_text.h"
#include "engine/filesystem/handles/native_file.h"
#include "engine/filesystem/registry/holders.h"

namespace container {
namespace {

constexpr std::uint64_t collect_size = 4u << 20;  // no more is ever pending

bool seek_to(SFsFile& file, std::uint64_t offset) {
    return file.seek(static_cast<std::int64_t>(offset), EFSSeek::BEGIN);
}

}  // namespace

FilePtr open_in_place(const char* path) {
    const fs::path name = fs::lookup_name(path);
    const fs::registry::SharedGuard guard;
    CFSSource* const holder = fs::registry::first_holder(name, fs::registry::Match::AS_SOURCE_DOES);
    if (holder == nullptr) {
        return fs::refuse(EFSError::NOT_FOUND, path, "No source holds a multi-container file of this name."), nullptr;
    }
    if (!holder->writable()) {
        fs::set_error(EFSError::READ_ONLY, path, "The source that holds the multi-container file is not writable.");
        return nullptr;
    }
    fs::ErrorScope scope;
    // With the disk after each write, which the order of saving needs.
    FilePtr file(holder->open_read_write(name, FFSOpenFlags::WRITE_THROUGH));
    if (file == nullptr)
        fs::fail_unless_told(scope, EFSError::IO, path, "The source cannot open the multi-container file for writing.");
    return file;
}

void File::Use(FilePtr file, bool writable) {
    main_ = std::move(file);
    native_ = dynamic_cast<Win32FileHandle*>(main_.get());
    writable_ = writable;
    pending_.clear();
    flushed_ = 0;
}

std::uint64_t File::Length() const {
    const std::lock_guard lock(position_lock_);
    return fs::length(main_.get());
}

bool File::Read(void* buffer, std::uint64_t size, std::uint64_t offset) const {
    if (size == 0) return true;
    std::uint64_t got = 0;
    if (offset >= flushed_ && !pending_.empty()) {
        const std::uint64_t place = std::min<std::uint64_t>(offset - flushed_, pending_.size());
        got = std::min(size, pending_.size() - place);
        std::memcpy(buffer, pending_.data() + place, got);
    } else if (native_ != nullptr) {
        got = native_->read_at(buffer, size, offset);
    } else {
        const std::lock_guard lock(position_lock_);
        fs::ErrorScope scope;
        got = seek_to(*main_, offset) ? main_->read(buffer, size) : ~std::uint64_t{0};
        if (got > size)
            fs::fail_unless_told(scope, EFSError::IO, fs::file_name(main_.get()),
                                 "The multi-container file cannot be read.");
    }
    return got == size || (got < size && fs::refuse(EFSError::BAD_FORMAT, fs::file_name(main_.get()),
                                                    "The multi-container ends too early."));
}

bool File::Append(const void* data, std::uint64_t size) {
    if (size > collect_size - pending_.size() && !Flush()) return false;
    if (size >= collect_size) return AppendAtOnce(data, size);
    const auto* const bytes = static_cast<const unsigned char*>(data);
    pending_.reserve(collect_size);
    pending_.insert(pending_.end(), bytes, bytes + size);
    return true;
}

bool File::AppendAtOnce(const void* data, std::uint64_t size) {
    if (WriteAt(data, size, flushed_)) {
        flushed_ += size;
        return true;
    }
    // What a full disk took of it would only be in the way.
    const fs::ErrorKeeper keeper;
    CutAtEnd();
    return false;
}

bool File::Flush() {
    if (!AppendAtOnce(pending_.data(), pending_.size())) return false;
    pending_.clear();
    return true;
}

void File::CutAtEnd() {
    const std::lock_guard lock(position_lock_);
    if (main_->length() > flushed_ && seek_to(*main_, flushed_)) main_->set_eof();
}

bool File::WriteAt(const void* data, std::uint64_t size, std::uint64_t offset) {
    if (size == 0) return true;
    const std::lock_guard lock(position_lock_);
    fs::ErrorScope scope;
    if (seek_to(*main_, offset)) return fs::write_all(*main_, fs::file_name(main_.get()), data, size);
    return fs::fail_unless_told(scope, EFSError::IO, fs::file_name(main_.get()),
                                "The multi-container file cannot be written.");
}

}  // namespace container

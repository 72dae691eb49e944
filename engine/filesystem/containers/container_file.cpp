#include "engine/filesystem/containers/container_file.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include <engine/filesystem/access/open.h>
#include <engine/filesystem/handles.h>

#include "engine/filesystem/contract/set_error.h"

namespace container {
namespace {

constexpr std::uint64_t collect_size = 4u << 20;
constexpr std::size_t most_idle_readers = 16;

bool read_at(SFsFile& file, void* buffer, std::uint64_t size, std::uint64_t offset) {
    if (size == 0) return true;
    return file.seek(static_cast<std::int64_t>(offset), EFSSeek::BEGIN) && file.read(buffer, size) == size;
}

bool write_at(SFsFile& file, const void* data, std::uint64_t size, std::uint64_t offset) {
    if (size == 0) return true;
    return file.seek(static_cast<std::int64_t>(offset), EFSSeek::BEGIN) && file.write(data, size) == size;
}

}  // namespace

bool File::Open(const char* path, bool writable) {
    Close();
    path_ = path;
    writable_ = writable;
    const auto flags = writable ? FFSOpenFlags::WRITE_THROUGH : FFSOpenFlags::NONE;
    main_.reset(fs::open(path, writable ? EFSMode::READ_WRITE : EFSMode::READ, flags));
    return main_ != nullptr;
}

bool File::Create(const char* path) {
    Close();
    path_ = path;
    writable_ = true;
    main_.reset(fs::open(path, EFSMode::READ_WRITE, FFSOpenFlags::CREATE | FFSOpenFlags::WRITE_THROUGH));
    return main_ != nullptr && main_->seek(0, EFSSeek::BEGIN) && (main_->length() == 0 || main_->set_eof());
}

bool File::CreateNative(const char* path) {
    Close();
    path_ = path;
    writable_ = true;
    // Nobody sees this file before it is put in place, and that waits for the disk.
    main_.reset(fs::open_native(nullptr, path, EFSMode::READ_WRITE, FFSOpenFlags::CREATE));
    return main_ != nullptr;
}

bool File::OpenNative(const char* path) {
    Close();
    path_ = path;
    writable_ = true;
    main_.reset(fs::open_native(nullptr, path, EFSMode::READ_WRITE, FFSOpenFlags::WRITE_THROUGH));
    return main_ != nullptr;
}

void File::Close() {
    readers_.clear();
    main_.reset();
    pending_.clear();
    flushed_ = 0;
}

std::uint64_t File::Length() { return fs::length(main_.get()); }

void File::SetEnd(std::uint64_t end) {
    pending_.clear();
    flushed_ = end;
}

bool File::Read(void* buffer, std::uint64_t size, std::uint64_t offset) const {
    if (offset >= flushed_ && !pending_.empty()) {
        const std::uint64_t place = offset - flushed_;
        if (place > pending_.size() || size > pending_.size() - place) return false;
        if (size != 0) std::memcpy(buffer, pending_.data() + place, size);
        return true;
    }
    if (writable_) {
        const std::lock_guard guard(readers_lock_);
        return read_at(*main_, buffer, size, offset);
    }
    FilePtr reader = TakeReader();
    if (reader == nullptr) return false;
    const bool done = read_at(*reader, buffer, size, offset);
    GiveBack(std::move(reader));
    return done;
}

/// Each reading thread borrows an open file of its own, so that none waits for another's read.
FilePtr File::TakeReader() const {
    {
        const std::lock_guard guard(readers_lock_);
        if (!readers_.empty()) {
            FilePtr reader = std::move(readers_.back());
            readers_.pop_back();
            return reader;
        }
    }
    return FilePtr(fs::open(path_.c_str(), EFSMode::READ));
}

void File::GiveBack(FilePtr reader) const {
    const std::lock_guard guard(readers_lock_);
    if (readers_.size() < most_idle_readers) readers_.push_back(std::move(reader));
}

bool File::Append(const void* data, std::uint64_t size) {
    if (size > collect_size - std::min<std::uint64_t>(collect_size, pending_.size()) && !Flush()) return false;
    if (size >= collect_size) return AppendAtOnce(data, size);
    const auto* const bytes = static_cast<const unsigned char*>(data);
    if (pending_.capacity() < collect_size) pending_.reserve(collect_size);
    pending_.insert(pending_.end(), bytes, bytes + size);
    return true;
}

bool File::AppendAtOnce(const void* data, std::uint64_t size) {
    if (!WriteAt(data, size, flushed_)) return false;
    flushed_ += size;
    return true;
}

bool File::Flush() {
    if (!AppendAtOnce(pending_.data(), pending_.size())) return false;
    pending_.clear();
    return true;
}

void File::CutAtEnd() {
    const std::lock_guard guard(readers_lock_);
    if (main_->seek(static_cast<std::int64_t>(flushed_), EFSSeek::BEGIN)) main_->set_eof();
}

bool File::WriteAt(const void* data, std::uint64_t size, std::uint64_t offset) {
    const std::lock_guard guard(readers_lock_);
    if (write_at(*main_, data, size, offset)) return true;
    if (fs::last_error().code == EFSError::NONE)
        fs::set_error(EFSError::IO, path_.c_str(), "The container file cannot be written.");
    return false;
}

}  // namespace container

#include <engine/filesystem/streams/memory.h>

#include "engine/filesystem/contract/failure.h"
#include "engine/filesystem/streams/memory_limit.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>

namespace fs {

namespace {

/// Up to `size` bytes from `pos` on, which moves.
std::uint64_t copy_out(const unsigned char* bytes, std::uint64_t end, std::uint64_t& pos, void* buffer,
                       std::uint64_t size) {
    if (size == 0 || pos >= end) return 0;
    const std::uint64_t there = std::min(size, end - pos);
    std::memcpy(buffer, bytes + pos, static_cast<std::size_t>(there));
    pos += there;
    return there;
}

bool resize(ztl::vector<unsigned char>& vector, std::uint64_t size) {
    if (size > memory_limit) return refuse(EFSError::TOO_LARGE, "", "No stream in memory grows as large as this.");
    return guarded("", false, [&] {
        vector.resize(static_cast<std::size_t>(size));
        return true;
    });
}

bool append(ztl::vector<unsigned char>& vector, const unsigned char* data, std::uint64_t size) {
    return guarded("", false, [&] { return vector.insert(vector.end(), data, data + size), true; });
}

}  // namespace

memfile::memfile() = default;

memfile::~memfile() = default;

bool memfile::open_from_memory(EFSMode::TYPE mode, unsigned char* buffer, std::uint64_t capacity, bool zip) {
    buffer_ = buffer;
    capacity_ = buffer == nullptr ? 0 : capacity;
    size_ = mode == EFSMode::WRITE ? 0 : capacity_;
    pos_ = 0;
    return init(mode, zip);
}

std::uint64_t memfile::write_data(const void* data, std::uint64_t size) {
    if (size == 0 || pos_ >= capacity_) return 0;
    const std::uint64_t fits = std::min(size, capacity_ - pos_);
    std::memcpy(buffer_ + pos_, data, static_cast<std::size_t>(fits));
    pos_ += fits;
    size_ = std::max(size_, pos_);
    return fits;
}

std::uint64_t memfile::read_data(void* buffer, std::uint64_t size) {
    return copy_out(buffer_, size_, pos_, buffer, size);
}

std::uint64_t memfile::get_size() { return size_; }

bool memfile::set_size(std::uint64_t size) {
    size_ = std::min(size, capacity_);
    return true;
}

std::uint64_t memfile::get_current_pos() { return pos_; }

bool memfile::set_current_pos(std::int64_t position) {
    // The bound is the size as a signed 32-bit number: a block of 2 GiB or more does not seek as one would think.
    if (position < 0 || position > static_cast<std::int32_t>(size_)) return false;
    pos_ = static_cast<std::uint64_t>(position);
    return true;
}

vectorfile::vectorfile() = default;

vectorfile::~vectorfile() = default;

bool vectorfile::open_from_memory(EFSMode::TYPE mode, ztl::vector<unsigned char>* vector, bool zip) {
    vector_ = vector;
    pos_ = 0;
    return init(mode, zip);
}

std::uint64_t vectorfile::write_data(const void* data, std::uint64_t size) {
    if (size == 0 || vector_ == nullptr) return 0;
    // The owner may have shortened the vector meanwhile.
    if (pos_ > vector_->size() && !resize(*vector_, pos_ + std::min(size, memory_limit))) return 0;
    const auto* bytes = static_cast<const unsigned char*>(data);
    const std::uint64_t inside = std::min<std::uint64_t>(size, vector_->size() - pos_);
    // What goes past the end is appended first: when there is no memory for it, nothing has changed.
    if (inside < size && !append(*vector_, bytes + inside, size - inside)) return 0;
    if (inside != 0) std::memcpy(vector_->data() + pos_, bytes, static_cast<std::size_t>(inside));
    pos_ += size;
    return size;
}

std::uint64_t vectorfile::read_data(void* buffer, std::uint64_t size) {
    return vector_ == nullptr ? 0 : copy_out(vector_->data(), vector_->size(), pos_, buffer, size);
}

std::uint64_t vectorfile::get_size() { return vector_ == nullptr ? 0 : vector_->size(); }

bool vectorfile::set_size(std::uint64_t size) { return vector_ != nullptr && resize(*vector_, size); }

std::uint64_t vectorfile::get_current_pos() { return pos_; }

bool vectorfile::set_current_pos(std::int64_t position) {
    if (position < 0 || position > std::numeric_limits<std::int32_t>::max()) return false;
    const auto target = static_cast<std::uint64_t>(position);
    if (target > get_size() && !set_size(target)) return false;
    pos_ = target;
    return true;
}

}  // namespace fs

FileInMemory::FileInMemory(void* buffer, std::uint64_t size) : buffer_(buffer) {
    stream_.open_from_memory(EFSMode::READ, static_cast<unsigned char*>(buffer), size, false);
}

FileInMemory::~FileInMemory() { std::free(buffer_); }

FileInMemory* FileInMemory::create(void* buffer, std::uint64_t size) {
    auto* const file = new (std::nothrow) FileInMemory(buffer, size);
    if (file == nullptr) std::free(buffer);
    return file;
}

std::uint64_t FileInMemory::read(void* buffer, std::uint64_t size) {
    if (buffer_ == nullptr) return fs::fail(EFSError::INVALID_ARGUMENT, "The file in memory has no bytes.", name);
    return stream_.read(buffer, size);
}

std::uint64_t FileInMemory::write(const void*, std::uint64_t) {
    return fs::fail(EFSError::UNSUPPORTED, "A file in memory is only read.", name);
}

bool FileInMemory::seek(std::int64_t offset, EFSSeek::TYPE origin) { return stream_.seek(offset, origin); }

std::uint64_t FileInMemory::length() { return stream_.length(); }

std::uint64_t FileInMemory::tell() { return stream_.tell(); }

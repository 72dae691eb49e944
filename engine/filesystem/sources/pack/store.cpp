#include "engine/filesystem/sources/pack/store.h"

#include <algorithm>
#include <cstring>
#include <new>

#include <engine/filesystem/access/monitor.h>

#include "engine/filesystem/contract/set_error.h"
#include "engine/platform/same_file.h"

namespace fs {

bool PackStore::open(const char* native_path, bool in_memory, const PackStore* before) {
    path_ = native_path;
    file_ = std::make_shared<platform::File>(platform::File::open(native_path, {.sharing = platform::Sharing::NONE}));
    if (!file_->valid() && before != nullptr && platform::leads_to(native_path, *before->file_)) file_ = before->file_;
    if (!file_->valid()) return refuse_by_disk(native_path, "cannot be opened as a pack");
    monitor_touch_file(native_path);
    length_ = file_->length();
    if (length_ == failed) return refuse_by_disk(native_path, "does not tell its length");
    return !in_memory || load();
}

/// False when the pack cannot be read.
bool PackStore::load() {
    std::unique_ptr<std::uint8_t[]> bytes(new (std::nothrow) std::uint8_t[static_cast<std::size_t>(length_)]);
    if (!bytes) return true;
    const std::uint64_t got = read(0, bytes.get(), length_);
    if (got == failed) return false;
    length_ = got;
    memory_ = std::move(bytes);
    file_ = std::make_shared<platform::File>();
    return true;
}

std::uint64_t PackStore::read(std::uint64_t offset, void* buffer, std::uint64_t size) const {
    if (offset >= length_) return 0;
    const std::uint64_t wanted = std::min(size, length_ - offset);
    if (memory_) {
        std::memcpy(buffer, memory_.get() + offset, static_cast<std::size_t>(wanted));
        return wanted;
    }
    const std::uint64_t got = wanted == 0 ? 0 : file_->read_at(buffer, wanted, offset);
    if (got == failed) refuse_by_disk(path_.c_str(), "cannot be read as a pack");
    return got;
}

const std::uint8_t* PackStore::view(std::uint64_t offset, std::uint64_t size) const {
    if (!memory_ || offset > length_ || size > length_ - offset) return nullptr;
    return memory_.get() + offset;
}

platform::Mapping PackStore::map(std::uint64_t offset, std::uint64_t size) const {
    platform::Mapping mapping(*file_, offset, size);
    if (mapping.IsEmpty()) refuse_by_disk(path_.c_str(), "cannot be mapped");
    return mapping;
}

}  // namespace fs

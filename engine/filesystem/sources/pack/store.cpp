#include "engine/filesystem/sources/pack/store.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

#include "engine/filesystem/contract/error.h"

namespace fs {

bool PackStore::open(std::string path, std::unique_ptr<PackOrigin> origin, bool in_memory) {
    if (!origin) return false;
    path_ = std::move(path);
    origin_ = std::move(origin);
    length_ = origin_->length();
    return length_ != failed && (!in_memory || load());
}

bool PackStore::open_anew(const PackStore& mounted, bool in_memory) {
    ErrorScope scope;
    std::unique_ptr<PackOrigin> origin = PackOrigin::file(mounted.path_.c_str());
    if (!origin && mounted.origin_) origin = mounted.origin_->again();
    if (origin) scope.forget();
    return open(mounted.path_, std::move(origin), in_memory);
}

/// False when the pack cannot be read.
bool PackStore::load() {
    std::unique_ptr<std::uint8_t[]> bytes(new (std::nothrow) std::uint8_t[static_cast<std::size_t>(length_)]);
    if (!bytes) return true;
    const std::uint64_t got = read(0, bytes.get(), length_);
    if (got == failed) return false;
    length_ = got;
    memory_ = std::move(bytes);
    origin_.reset();
    return true;
}

std::uint64_t PackStore::read(std::uint64_t offset, void* buffer, std::uint64_t size) const {
    if (offset >= length_) return 0;
    const std::uint64_t wanted = std::min(size, length_ - offset);
    if (memory_) {
        std::memcpy(buffer, memory_.get() + offset, static_cast<std::size_t>(wanted));
        return wanted;
    }
    return wanted == 0 ? 0 : origin_->read(offset, buffer, wanted);
}

const std::uint8_t* PackStore::view(std::uint64_t offset, std::uint64_t size) const {
    if (!memory_ || offset > length_ || size > length_ - offset) return nullptr;
    return memory_.get() + offset;
}

void PackStore::prefetch(std::uint64_t offset, std::uint64_t size) const {
    if (is_remote() && offset < length_) origin_->prefetch(offset, std::min(size, length_ - offset));
}

}  // namespace fs

#include "engine/filesystem/sources/pack/store.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include <engine/filesystem/access/monitor.h>

#include "engine/filesystem/contract/set_error.h"

namespace fs {

namespace {

constexpr std::uint64_t unknown = ~std::uint64_t{0};

}  // namespace

bool PackStore::open(const char* native_path, bool in_memory) {
    file_ = platform::File::open(native_path, {.sharing = platform::Sharing::NONE});
    if (!file_.valid()) {
        set_error_from_platform(native_path, "cannot be opened as a pack", platform::last_error());
        return false;
    }
    monitor_touch_file(native_path);
    length_ = file_.length();
    if (length_ == unknown) {
        set_error_from_platform(native_path, "does not tell its length", platform::last_error());
        return false;
    }
    if (in_memory && load()) file_.close();
    return true;
}

bool PackStore::load() {
    if (length_ > std::numeric_limits<std::size_t>::max()) return false;
    memory_.reset(static_cast<std::uint8_t*>(std::malloc(std::max<std::size_t>(1, static_cast<std::size_t>(length_)))));
    if (!memory_) return false;
    const std::uint64_t got = file_.read_at(memory_.get(), length_, 0);
    length_ = got == unknown ? 0 : got;
    return true;
}

std::uint64_t PackStore::read(std::uint64_t offset, void* buffer, std::uint64_t size) const {
    if (offset >= length_) return 0;
    const std::uint64_t wanted = std::min(size, length_ - offset);
    if (memory_) {
        std::memcpy(buffer, memory_.get() + offset, static_cast<std::size_t>(wanted));
        return wanted;
    }
    const std::uint64_t got = file_.read_at(buffer, wanted, offset);
    return got == unknown ? 0 : got;
}

const std::uint8_t* PackStore::view(std::uint64_t offset, std::uint64_t size) const {
    if (!memory_ || offset > length_ || size > length_ - offset) return nullptr;
    return memory_.get() + offset;
}

}  // namespace fs

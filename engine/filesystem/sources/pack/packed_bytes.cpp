#include "engine/filesystem/sources/pack/packed_bytes.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace fs {

namespace {

constexpr std::uint32_t shortest_read = 16 * 1024;  // into other memory than the window

}  // namespace

PackedBytes::PackedBytes(const PackStore& store, const PackedData& data)
    : store_(store), data_(data), capacity_(std::clamp(data.packed_size, 1u, longest_view)) {
    if (!store.view(data.offset, data.packed_size)) window_.reset(new std::uint8_t[capacity_]);
}

const std::uint8_t* PackedBytes::view(std::uint32_t offset, std::uint32_t size) {
    if (!window_) return store_.view(data_.offset + offset, size);
    const bool is_held = offset >= start_ && offset - start_ <= held_ && size <= held_ - (offset - start_);
    if (is_held) return window_.get() + (offset - start_);
    start_ = offset;
    held_ = read(offset, window_.get(), std::min(data_.packed_size - offset, capacity_), size);
    return window_.get();
}

void PackedBytes::copy(std::uint32_t offset, std::uint8_t* out, std::uint64_t size) {
    if (size >= shortest_read) {
        read(offset, out, size, size);
    } else if (size != 0) {
        std::memcpy(out, view(offset, static_cast<std::uint32_t>(size)), static_cast<std::size_t>(size));
    }
}

/// Reads up to `size` bytes, of which `needed` are waited for: what is missing of those is a fault. The number of good
/// bytes.
std::uint32_t PackedBytes::read(std::uint32_t offset, std::uint8_t* out, std::uint64_t size, std::uint64_t needed) {
    const std::uint64_t start = data_.offset + offset;
    const std::uint64_t got = store_.read(start, out, size);
    const std::uint64_t good = got == PackStore::failed ? 0 : got;
    if (good < needed) {
        const bool by_disk = got == PackStore::failed || store_.read(start + good, out + good, 1) == PackStore::failed;
        fault_ = by_disk ? PackFault::IO : PackFault::PACK_IS_SHORT;
        std::memset(out + good, 0, static_cast<std::size_t>(needed - good));
    }
    return static_cast<std::uint32_t>(good);
}

PackFault PackedBytes::take_fault() { return std::exchange(fault_, PackFault::NONE); }

}  // namespace fs

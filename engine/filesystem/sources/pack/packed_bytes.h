#pragma once

#include <cstdint>
#include <memory>

#include "engine/filesystem/sources/pack/archive.h"

namespace fs {

/// Why an entry did not give what its directory promises.
enum class PackFault : std::uint8_t { NONE, DAMAGED, ENDS_EARLY, CHECKSUM, PACK_IS_SHORT, IO };

/// The packed bytes of one entry, read through a window. What the pack does not have (any more), or what cannot
/// be read, are zeros; such bytes are handed out once and never kept.
/// Threads  one at a time.
class PackedBytes {
public:
    /// May throw std::bad_alloc.
    PackedBytes(const PackStore& store, const PackedData& data);

    std::uint32_t size() const { return data_.packed_size; }
    /// `size` bytes from `offset` on, which the entry has; at most `longest_view`. They stay until the next call.
    const std::uint8_t* view(std::uint32_t offset, std::uint32_t size);
    /// The same of any number, copied.
    void copy(std::uint32_t offset, std::uint8_t* out, std::uint64_t size);
    /// What went wrong since the last call of this.
    PackFault take_fault();

    static constexpr std::uint32_t longest_view = 64 * 1024;

private:
    std::uint32_t read(std::uint32_t offset, std::uint8_t* out, std::uint64_t size, std::uint64_t needed);

    const PackStore& store_;
    const PackedData data_;
    const std::uint32_t capacity_;
    std::unique_ptr<std::uint8_t[]> window_;  // null for a pack in memory
    std::uint32_t start_ = 0;                 // offset in the packed bytes of the window's first
    std::uint32_t held_ = 0;
    PackFault fault_ = PackFault::NONE;
};

}  // namespace fs

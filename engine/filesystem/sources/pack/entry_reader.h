#pragma once

#include <cstdint>
#include <memory>

#include "engine/filesystem/sources/pack/packed_bytes.h"

namespace fs {

/// Reads one entry: what an open file of a pack has, once it is read from.
/// Threads  one at a time.
class EntryReader {
public:
    /// The reader that the entry's method asks for. `exact_seeks`: a stored entry is read at the position asked for. May
    /// throw std::bad_alloc.
    static std::unique_ptr<EntryReader> create(PackArchive& archive, std::uint32_t entry, const PackedData& data,
                                               bool exact_seeks);
    virtual ~EntryReader() = default;

    /// Reads `count` bytes, which the entry's size allows, at `position`. Bytes delivered.
    virtual std::uint64_t read(std::uint64_t position, std::uint8_t* buffer, std::uint64_t count) = 0;
    /// The caller moved to `position`.
    virtual void seek(std::uint64_t /*position*/) {}
    /// What went wrong in the last read.
    virtual PackFault fault() const = 0;
};

}  // namespace fs

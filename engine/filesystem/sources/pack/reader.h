#pragma once

#include <cstdint>
#include <memory>

namespace fs {

class PackArchive;

/// Why an entry did not give what its directory promises.
enum class PackFault : std::uint8_t { NONE, DAMAGED, ENDS_EARLY, CHECKSUM, PACK_IS_SHORT, IO };

/// Reads one entry: what an open file of a pack has, once it is read from.
/// Threads  one at a time.
class EntryReader {
public:
    static constexpr std::uint32_t block_size = 32768;
    static constexpr std::uint32_t input_size = 16384;  // blocks are filled from pieces of the input of this size

    /// The reader that the method of a file that was located asks for. `exact_seeks`: a stored entry is read at the
    /// position asked for. May throw std::bad_alloc.
    static std::unique_ptr<EntryReader> create(PackArchive& archive, std::uint32_t file, bool exact_seeks);
    virtual ~EntryReader() = default;

    /// Reads `count` bytes, which the entry's size allows, at `position`. Bytes delivered.
    virtual std::uint64_t read(std::uint64_t position, std::uint8_t* buffer, std::uint64_t count) = 0;
    /// The caller moved to `position`.
    virtual void seek(std::uint64_t position) = 0;
    /// What went wrong in the last read.
    PackFault fault() const { return fault_; }

protected:
    PackFault fault_ = PackFault::NONE;
};

}  // namespace fs

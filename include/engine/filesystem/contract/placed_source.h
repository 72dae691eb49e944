#pragma once

#include <cstdint>

#include <engine/filesystem/contract/path.h>

namespace fs {

/// What a source can do whose files lie one behind the other, as those of a pack do: tell where. Reading in that order is
/// reading forward. A source class derives from it besides CFSSource; who needs it asks with dynamic_cast.
class PlacedSource {
public:
    /// Where the file that `p` opens begins, in bytes; 0 for one that the source does not hold.
    /// Threads  called under the registry's lock, held shared at least.
    virtual std::uint64_t place(const fs::path& p) = 0;

protected:
    ~PlacedSource() = default;
};

}  // namespace fs

#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

#include "engine/filesystem/sources/pack/snapshots.h"
#include "engine/filesystem/sources/pack/store.h"
#include "engine/filesystem/sources/pack/table.h"
#include "engine/filesystem/sources/pack/whole_decoders.h"

namespace fs {

class dir;

/// Where the bytes of one entry lie and what they are.
struct PackedData {
    std::uint64_t offset = 0;
    std::uint32_t packed_size = 0;
    std::uint32_t size = 0;
    bool stored = false;
};

/// A mounted pack: its bytes, its table, and what its open files share. The source and every open file hold it.
/// Threads  any number at once; what changes has its own lock or is atomic.
class PackArchive {
public:
    /// Opens and reads the pack. Null, with fs::last_error set, on failure.
    static std::shared_ptr<PackArchive> mount(const char* native_path, bool in_memory);
    /// Adds the pack's directories. False when memory for some of them cannot be had.
    bool fill_tree(dir& tree) const;

    const PackStore& store() const { return store_; }
    PackTable& table() { return table_; }
    PackSnapshots& snapshots() { return snapshots_; }
    WholeDecoders& whole_decoders() { return whole_decoders_; }

    /// Reads the entry's local header unless that was done before. False, with fs::last_error set, when it cannot be.
    bool locate(std::uint32_t index);
    /// Of an entry that was located.
    PackedData data_of(std::uint32_t index);

private:
    bool read_directory(const char* native_path);

    PackStore store_;
    PackTable table_;
    PackSnapshots snapshots_;
    WholeDecoders whole_decoders_;
};

}  // namespace fs

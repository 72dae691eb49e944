#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include <engine/filesystem/formats/pack_method.h>

#include "engine/filesystem/sources/pack/checkpoints.h"
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
    EFSPackMethod::TYPE method = EFSPackMethod::DEFLATE;
};

/// A mounted pack: its bytes, its table, and what its open files share. The source and every open file hold it.
/// Threads  any number at once; what changes has its own lock or is atomic.
class PackArchive {
public:
    /// Reads the directory of an open pack. May throw std::bad_alloc, or StoredFailure when it is none.
    static std::shared_ptr<PackArchive> mount(PackStore store);
    /// The latest one that was mounted from this path, in any case, and is still in use; null when there is none.
    static std::shared_ptr<const PackArchive> mounted_from(const char* path);
    /// Adds the pack's directories. May throw std::bad_alloc.
    void fill_tree(dir& tree) const;

    const PackStore& store() const { return store_; }
    PackTable& table() { return table_; }
    PackCheckpoints& checkpoints() { return checkpoints_; }
    WholeDecoders& whole_decoders() { return whole_decoders_; }

    std::string full_name(std::uint32_t file) const {
        return std::string(table_.names.dir(file)).append(table_.names.name(file));
    }
    /// What is done when the file is opened: locates it, unless that may take long. False, with fs::last_error set, when
    /// that fails or the entry is of a kind that is not read.
    bool open(std::uint32_t file);
    /// Reads the file's local header unless that was done before; the first step of every use of an open file.
    bool locate(std::uint32_t file);
    /// Of a file that was located.
    PackedData data_of(std::uint32_t file);

private:
    PackStore store_;
    PackTable table_;
    PackCheckpoints checkpoints_;
    WholeDecoders whole_decoders_;
};

}  // namespace fs

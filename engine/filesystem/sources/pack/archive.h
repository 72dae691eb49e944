#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include <engine/filesystem/formats/pack_method.h>

#include "engine/filesystem/formats/decoder.h"
#include "engine/filesystem/sources/pack/store.h"
#include "engine/filesystem/sources/pack/table.h"
#include "engine/platform/threads.h"

namespace fs {

/// Where the bytes of one entry lie and what they are.
struct PackedData {
    std::uint64_t offset = 0;
    std::uint32_t packed_size = 0;
    std::uint32_t size = 0;
    EFSPackMethod::TYPE method = EFSPackMethod::DEFLATE;
};

/// Where the decoding of an entry can go on.
struct EntryCheckpoint {
    std::shared_ptr<const Decoder::Checkpoint> state;  // null for none
    std::uint32_t consumed = 0;                        // packed bytes that the decoder had taken
};

/// States of one entry's decoding at the beginnings of some of its blocks. They are taken as decoding passes and shared
/// by the open files of the entry.
struct EntryCheckpoints {
    std::uint32_t entry;
    std::uint32_t interval;             // in blocks
    std::vector<EntryCheckpoint> kept;  // by block number / interval
};

/// The checkpoints of all entries of a pack: at most 16 MiB.
/// Threads  any; what is in the sets is touched here alone, under the lock.
class PackCheckpoints {
public:
    static constexpr std::uint32_t base_interval = 40;  // in blocks: 1.25 MiB, of which a checkpoint is 3 %
    static constexpr std::uint32_t most_kept = 420;     // 16 MiB; an entry that would have more has them further apart
    static constexpr std::uint64_t most_bytes = 16 * 1024 * 1024;

    /// Those of one entry; null for an entry that is too small to need any. May throw std::bad_alloc.
    std::shared_ptr<EntryCheckpoints> of(std::uint32_t entry, std::uint32_t size);
    /// Whether block `number` is one whose beginning is kept and not known yet.
    bool wants(const EntryCheckpoints& set, std::uint32_t number);
    /// Keeps the state at the beginning of block `number`, if there is room for it.
    void add(EntryCheckpoints& set, std::uint32_t number, EntryCheckpoint checkpoint);
    /// The latest one after block `after` and at or before block `number`, and in `found` its block.
    EntryCheckpoint find(const EntryCheckpoints& set, std::uint32_t number, std::uint32_t after, std::uint32_t& found);

private:
    void make_room() ENGINE_REQUIRES(lock_);

    platform::Mutex lock_;
    std::vector<std::shared_ptr<EntryCheckpoints>> sets_ ENGINE_GUARDED_BY(lock_);  // the latest used last
    std::uint64_t held_ ENGINE_GUARDED_BY(lock_) = 0;                               // bytes
};

/// Decodes whole entries in one call, straight from the packed bytes into the caller's buffer, the fastest way there
/// is. Decoders and their buffers are kept for the next entry.
/// Threads  any number at once.
class WholeDecoders {
public:
    WholeDecoders();  // may throw std::bad_alloc
    ~WholeDecoders();
    WholeDecoders(const WholeDecoders&) = delete;
    WholeDecoders& operator=(const WholeDecoders&) = delete;

    /// Decodes a compressed entry. False when it is damaged, not of its recorded size, or too large for this: the
    /// caller then goes by blocks. May throw std::bad_alloc.
    bool decode(const PackStore& store, const PackedData& data, std::uint8_t* buffer);

private:
    struct Worker;

    platform::Mutex lock_;
    std::vector<std::unique_ptr<Worker>> idle_ ENGINE_GUARDED_BY(lock_);
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

    /// What is done when the file is opened: locates it, unless that may take long. False, with fs::last_error set,
    /// when that fails or the entry is of a kind that is not read.
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

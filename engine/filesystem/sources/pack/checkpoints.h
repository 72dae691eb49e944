#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "engine/filesystem/formats/codec.h"
#include "engine/platform/lock.h"

namespace fs {

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

}  // namespace fs

#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "engine/filesystem/formats/decoder.h"
#include "engine/platform/lock.h"

namespace fs {

/// Where the decoding of an entry can go on.
struct EntryCheckpoint {
    std::shared_ptr<const Decoder::Checkpoint> state;  // null for none
    std::uint32_t consumed = 0;                        // packed bytes that the decoder had taken
};

/// States of one entry's decoding at the beginnings of some of its blocks. They are taken as decoding passes and shared
/// by the open files of the entry.
/// Threads  any.
class EntryCheckpoints {
public:
    static constexpr std::uint32_t base_interval = 57;  // in blocks: 1.8 MiB, of which a checkpoint is 2 %
    static constexpr std::uint32_t most_kept = 420;     // 16 MiB; an entry that would have more has them further apart

    /// All entries of the pack together hold `total` bytes, and may hold `most`.
    EntryCheckpoints(std::uint32_t entry, std::uint32_t size, std::atomic<std::uint64_t>& total, std::uint64_t most);
    ~EntryCheckpoints();
    EntryCheckpoints(const EntryCheckpoints&) = delete;
    EntryCheckpoints& operator=(const EntryCheckpoints&) = delete;

    std::uint32_t entry() const { return entry_; }
    /// Whether block `number` is one whose beginning is kept and not known yet.
    bool wants(std::uint32_t number);
    /// Keeps the state at the beginning of block `number`, if there is room for it.
    void add(std::uint32_t number, EntryCheckpoint checkpoint);
    /// The latest one after block `after` and at or before block `number`, and in `found` its block.
    EntryCheckpoint find(std::uint32_t number, std::uint32_t after, std::uint32_t& found);

private:
    platform::Mutex lock_;
    std::vector<EntryCheckpoint> kept_ ENGINE_GUARDED_BY(lock_);  // by block number / interval_
    std::uint64_t held_ ENGINE_GUARDED_BY(lock_) = 0;             // bytes
    std::atomic<std::uint64_t>& total_;
    const std::uint64_t most_;
    const std::uint32_t entry_;
    std::uint32_t interval_ = base_interval;  // constant, in blocks
};

/// The checkpoints of all entries of a pack: at most 16 MiB.
/// Threads  any.
class PackCheckpoints {
public:
    static constexpr std::uint64_t most_bytes = 16 * 1024 * 1024;

    /// Those of one entry; null for an entry that is too small to need any. May throw std::bad_alloc.
    std::shared_ptr<EntryCheckpoints> of(std::uint32_t entry, std::uint32_t size);

private:
    void make_room() ENGINE_REQUIRES(lock_);

    std::atomic<std::uint64_t> total_{0};
    platform::Mutex lock_;
    std::vector<std::shared_ptr<EntryCheckpoints>> sets_ ENGINE_GUARDED_BY(lock_);  // the latest used last
};

}  // namespace fs

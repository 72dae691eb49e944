#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "engine/filesystem/sources/pack/ring_inflate.h"

namespace fs {

/// States of one entry's decoding at the beginnings of some of its blocks, from which decoding can go on. They
/// are taken as decoding passes and shared by the open files of the entry.
/// Threads  any; a state, once here, neither changes nor goes before the set does.
class EntrySnapshots {
public:
    EntrySnapshots(std::uint32_t entry, std::uint32_t size, std::atomic<std::uint64_t>& total);
    ~EntrySnapshots();
    EntrySnapshots(const EntrySnapshots&) = delete;
    EntrySnapshots& operator=(const EntrySnapshots&) = delete;

    std::uint32_t entry() const { return entry_; }
    /// Whether block `number` is one whose beginning is kept and not known yet.
    bool wants(std::uint32_t number);
    /// Keeps the state of `decoder`, which stands at the beginning of block `number`, if there is room for it.
    void add(std::uint32_t number, const RingInflate& decoder);
    /// The latest state at or before block `number`, and in `found` its block. Null when there is none.
    const RingInflate::Snapshot* find(std::uint32_t number, std::uint32_t& found);

private:
    std::mutex lock_;  // guards snapshots_
    std::vector<std::unique_ptr<RingInflate::Snapshot>>
        snapshots_;  // by block number / interval_; null where none was taken
    std::atomic<std::uint64_t>& total_;
    const std::uint32_t entry_;
    std::uint32_t interval_;  // in blocks
    std::uint32_t allowed_;   // how many there may be
    std::uint32_t taken_ = 0;
};

/// The snapshots of all entries of a pack, at most 16 MiB of them.
/// Threads  any.
class PackSnapshots {
public:
    /// Those of one entry; null for an entry that is too small to need any, or when memory cannot be had.
    std::shared_ptr<EntrySnapshots> of(std::uint32_t entry, std::uint32_t size);
    std::uint64_t memory() const { return total_; }

private:
    void make_room();

    std::atomic<std::uint64_t> total_{0};
    std::mutex lock_;                                    // guards sets_
    std::vector<std::shared_ptr<EntrySnapshots>> sets_;  // the latest used last
};

}  // namespace fs

#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "engine/filesystem/sources/pack/ring_inflate.h"

namespace fs {

/// States of one entry's decoding at the beginnings of some of its blocks, from which decoding can go on. They
/// are taken as decoding passes and shared by the open files of the entry. When there is no more room for them, every
/// second one goes, so that the entry stays evenly covered.
/// Threads  any.
class EntrySnapshots {
public:
    using Snapshot = RingInflate::Snapshot;

    /// All entries of the pack together hold `total` bytes, and may hold `most`.
    EntrySnapshots(std::uint32_t entry, std::uint32_t size, std::atomic<std::uint64_t>& total, std::uint64_t most);
    ~EntrySnapshots();
    EntrySnapshots(const EntrySnapshots&) = delete;
    EntrySnapshots& operator=(const EntrySnapshots&) = delete;

    std::uint32_t entry() const { return entry_; }
    /// Whether block `number` is one whose beginning is kept and not known yet.
    bool wants(std::uint32_t number);
    /// Keeps the state of `decoder`, which stands at the beginning of block `number`, if there is room for it.
    void add(std::uint32_t number, const RingInflate& decoder);
    /// The latest state after block `after` and at or before block `number`, and in `found` its block. Null when there
    /// is none.
    std::shared_ptr<const Snapshot> find(std::uint32_t number, std::uint32_t after, std::uint32_t& found);

private:
    struct Kept;

    std::shared_ptr<const Kept> make(const RingInflate& decoder) const;
    bool take_room(std::uint64_t bytes);
    void give_back(std::uint64_t bytes);
    bool thin_out();

    std::mutex lock_;                                // guards kept_, interval_ and held_
    std::vector<std::shared_ptr<const Kept>> kept_;  // by block number / base_interval_; null where none is kept
    std::atomic<std::uint64_t>& total_;
    const std::uint64_t most_;
    const std::uint64_t allowed_;  // to this entry, in bytes
    const std::uint32_t entry_;
    const bool large_;                   // snapshots as they are would take more than all entries may
    const std::uint32_t base_interval_;  // in blocks
    std::uint32_t interval_;             // base_interval_, doubled as often as they were thinned out
    std::uint64_t held_ = 0;
};

/// The snapshots of all entries of a pack, at most 16 MiB of them.
/// Threads  any.
class PackSnapshots {
public:
    static constexpr std::uint64_t most_bytes = 16 * 1024 * 1024;

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

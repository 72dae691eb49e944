#include "engine/filesystem/sources/pack/snapshots.h"

#include <algorithm>
#include <new>

#include "engine/filesystem/sources/pack/block_reader.h"

namespace fs {

namespace {

constexpr std::uint64_t snapshot_bytes = sizeof(RingInflate::Snapshot) + 32;  // and what an allocator adds
constexpr std::uint64_t most_bytes = 16 * 1024 * 1024;
constexpr std::uint32_t shortest_interval = 54;  // 1.7 MiB: closer together they would be more than 2 % of the entry
static_assert(snapshot_bytes * 50 <= shortest_interval * BlockReader::block_size);

std::uint32_t interval_for(std::uint32_t size) {
    const std::uint64_t blocks = size / BlockReader::block_size;
    const std::uint64_t held = most_bytes / snapshot_bytes;
    return std::max(shortest_interval, static_cast<std::uint32_t>(blocks / held + 1));
}

}  // namespace

EntrySnapshots::EntrySnapshots(std::uint32_t entry, std::uint32_t size, std::atomic<std::uint64_t>& total)
    : total_(total), entry_(entry), interval_(interval_for(size)) {
    allowed_ = static_cast<std::uint32_t>(std::min(size / 50 / snapshot_bytes, most_bytes / snapshot_bytes));
    snapshots_.resize(size / BlockReader::block_size / interval_ + 1);
}

EntrySnapshots::~EntrySnapshots() { total_ -= taken_ * snapshot_bytes; }

bool EntrySnapshots::wants(std::uint32_t number) {
    if (number == 0 || number % interval_ != 0 || number / interval_ >= snapshots_.size()) return false;
    const std::lock_guard guard(lock_);
    return taken_ < allowed_ && !snapshots_[number / interval_];
}

void EntrySnapshots::add(std::uint32_t number, const RingInflate& decoder) {
    if (total_.fetch_add(snapshot_bytes) + snapshot_bytes > most_bytes) {
        total_ -= snapshot_bytes;
        return;
    }
    std::unique_ptr<RingInflate::Snapshot> snapshot(new (std::nothrow) RingInflate::Snapshot);
    if (snapshot) decoder.save(*snapshot);
    const std::lock_guard guard(lock_);
    std::unique_ptr<RingInflate::Snapshot>& place = snapshots_[number / interval_];
    if (!snapshot || place || taken_ >= allowed_) {
        total_ -= snapshot_bytes;
        return;
    }
    place = std::move(snapshot);
    ++taken_;
}

const RingInflate::Snapshot* EntrySnapshots::find(std::uint32_t number, std::uint32_t& found) {
    const std::lock_guard guard(lock_);
    for (std::size_t i = std::min<std::size_t>(number / interval_, snapshots_.size() - 1); i > 0; --i) {
        if (!snapshots_[i]) continue;
        found = static_cast<std::uint32_t>(i) * interval_;
        return snapshots_[i].get();
    }
    return nullptr;
}

std::shared_ptr<EntrySnapshots> PackSnapshots::of(std::uint32_t entry, std::uint32_t size) {
    if (size / 50 < snapshot_bytes) return nullptr;
    const std::lock_guard guard(lock_);
    const auto same = [entry](const auto& set) { return set->entry() == entry; };
    const auto found = std::find_if(sets_.begin(), sets_.end(), same);
    if (found != sets_.end()) {
        std::rotate(found, found + 1, sets_.end());
        return sets_.back();
    }
    try {
        make_room();
        sets_.push_back(std::make_shared<EntrySnapshots>(entry, size, total_));
        return sets_.back();
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

/// When most of the memory is taken, gives up the sets that no open file uses, the longest unused first.
void PackSnapshots::make_room() {
    for (std::size_t i = 0; i < sets_.size() && total_ > most_bytes / 2;) {
        if (sets_[i].use_count() == 1) {
            sets_.erase(sets_.begin() + static_cast<std::ptrdiff_t>(i));
        } else {
            ++i;
        }
    }
}

}  // namespace fs

#include "engine/filesystem/sources/pack_snapshots.h"

#include <algorithm>
#include <new>

#include "engine/filesystem/sources/pack_blocks.h"

namespace fs {

namespace {

// zlib's own state and its window, each rounded up to what an allocator takes for it.
constexpr std::uint64_t snapshot_bytes = 40 * 1024 + 512;
constexpr std::uint64_t most_bytes = 16 * 1024 * 1024;
constexpr std::uint32_t shortest_interval = 64;  // 2 MiB: closer together they would be more than 2 % of the entry

std::uint32_t interval_for(std::uint32_t size) {
    const std::uint64_t blocks = size / BlockReader::block_size;
    const std::uint64_t held = most_bytes / snapshot_bytes;
    return std::max(shortest_interval, static_cast<std::uint32_t>(blocks / held + 1));
}

}  // namespace

struct EntrySnapshots::Snapshot {
    z_stream stream{};
    bool valid = false;

    explicit Snapshot(z_stream& source) { valid = inflateCopy(&stream, &source) == Z_OK; }
    ~Snapshot() {
        if (valid) inflateEnd(&stream);
    }
    Snapshot(const Snapshot&) = delete;
    Snapshot& operator=(const Snapshot&) = delete;
};

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

void EntrySnapshots::add(std::uint32_t number, z_stream& stream) {
    if (total_.fetch_add(snapshot_bytes) + snapshot_bytes > most_bytes) {
        total_ -= snapshot_bytes;
        return;
    }
    std::unique_ptr<Snapshot> snapshot(new (std::nothrow) Snapshot(stream));
    const std::lock_guard guard(lock_);
    std::unique_ptr<Snapshot>& place = snapshots_[number / interval_];
    if (!snapshot || !snapshot->valid || place || taken_ >= allowed_) {
        total_ -= snapshot_bytes;
        return;
    }
    place = std::move(snapshot);
    ++taken_;
}

std::uint32_t EntrySnapshots::find(std::uint32_t number, z_stream*& stream) {
    stream = nullptr;
    const std::lock_guard guard(lock_);
    const std::size_t last = std::min<std::size_t>(number / interval_, snapshots_.size() - 1);
    for (std::size_t i = last; i > 0; --i) {
        if (!snapshots_[i]) continue;
        stream = &snapshots_[i]->stream;
        return static_cast<std::uint32_t>(i) * interval_;
    }
    return 0;
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

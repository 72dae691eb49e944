#include "engine/filesystem/sources/pack/snapshots.h"

#include <algorithm>
#include <new>
#include <utility>

#include <zlib.h>

#include "engine/filesystem/containers/pack_writer_deflate.h"
#include "engine/filesystem/sources/pack/block_reader.h"

namespace fs {

namespace {

constexpr std::uint64_t snapshot_bytes = sizeof(RingInflate::Snapshot) + 32;  // and what an allocator adds
constexpr std::uint32_t shortest_interval = 54;  // 1.7 MiB: closer together they would be more than 2 % of the entry
constexpr std::uint32_t large_interval = 63;     // so that what a seek costs stays just below 2 MiB
constexpr int deflate_level = 6;
static_assert(snapshot_bytes * 50 <= shortest_interval * BlockReader::block_size);

bool is_large(std::uint32_t size, std::uint64_t most) {
    return size / BlockReader::block_size / shortest_interval * snapshot_bytes > most;
}

}  // namespace

/// A snapshot as it is, or deflated where room is scarce: most of it is 32 KiB of the entry's own bytes.
struct EntrySnapshots::Kept {
    std::shared_ptr<const Snapshot> whole;
    std::vector<std::uint8_t> packed;

    std::uint64_t bytes() const { return whole ? snapshot_bytes : packed.size() + sizeof(Kept) + 32; }
    std::shared_ptr<const Snapshot> unpack() const;
};

std::shared_ptr<const EntrySnapshots::Snapshot> EntrySnapshots::Kept::unpack() const {
    if (whole) return whole;
    auto snapshot = std::make_shared<Snapshot>();
    z_stream stream{};
    stream.next_in = const_cast<Bytef*>(packed.data());
    stream.avail_in = static_cast<uInt>(packed.size());
    stream.next_out = reinterpret_cast<Bytef*>(snapshot.get());
    stream.avail_out = sizeof(Snapshot);
    if (inflateInit2(&stream, -MAX_WBITS) != Z_OK) return nullptr;
    const bool good = inflate(&stream, Z_FINISH) == Z_STREAM_END && stream.avail_out == 0;
    inflateEnd(&stream);
    return good ? snapshot : nullptr;
}

EntrySnapshots::EntrySnapshots(std::uint32_t entry, std::uint32_t size, std::atomic<std::uint64_t>& total,
                               std::uint64_t most)
    : total_(total),
      most_(most),
      allowed_(std::min<std::uint64_t>(size / 50, most)),
      entry_(entry),
      large_(is_large(size, most)),
      base_interval_(large_ ? large_interval : shortest_interval),
      interval_(base_interval_) {
    kept_.resize(size / BlockReader::block_size / base_interval_ + 1);
}

EntrySnapshots::~EntrySnapshots() { total_ -= held_; }

bool EntrySnapshots::wants(std::uint32_t number) {
    const std::lock_guard guard(lock_);
    if (number == 0 || number % interval_ != 0 || number / base_interval_ >= kept_.size()) return false;
    return !kept_[number / base_interval_];
}

std::shared_ptr<const EntrySnapshots::Kept> EntrySnapshots::make(const RingInflate& decoder) const {
    auto snapshot = std::make_shared<Snapshot>();
    decoder.save(*snapshot);
    auto kept = std::make_shared<Kept>();
    Deflater deflater;
    const bool packs = (large_ || total_ > most_ / 2) &&
                       deflater.deflate(snapshot.get(), sizeof(Snapshot), deflate_level) == Deflater::Result::SMALLER;
    if (packs) {
        kept->packed.assign(deflater.data(), deflater.data() + deflater.size());
    } else {
        kept->whole = std::move(snapshot);
    }
    return kept;
}

bool EntrySnapshots::take_room(std::uint64_t bytes) {
    if (held_ + bytes > allowed_) return false;
    if (total_.fetch_add(bytes) + bytes > most_) {
        total_ -= bytes;
        return false;
    }
    held_ += bytes;
    return true;
}

void EntrySnapshots::give_back(std::uint64_t bytes) {
    held_ -= bytes;
    total_ -= bytes;
}

/// False when that would make no room.
bool EntrySnapshots::thin_out() {
    const std::uint32_t step = interval_ / base_interval_ * 2;
    bool made_room = false;
    for (std::size_t i = 0; i < kept_.size(); ++i) {
        if (i % step == 0 || !kept_[i]) continue;
        give_back(kept_[i]->bytes());
        kept_[i].reset();
        made_room = true;
    }
    if (made_room) interval_ *= 2;
    return made_room;
}

void EntrySnapshots::add(std::uint32_t number, const RingInflate& decoder) {
    std::shared_ptr<const Kept> kept;
    try {
        kept = make(decoder);
    } catch (const std::bad_alloc&) {
        return;
    }
    const std::lock_guard guard(lock_);
    std::shared_ptr<const Kept>& place = kept_[number / base_interval_];
    if (place) return;
    while (!take_room(kept->bytes())) {
        if (!thin_out()) return;
    }
    if (number % interval_ != 0) return give_back(kept->bytes());
    place = std::move(kept);
}

std::shared_ptr<const EntrySnapshots::Snapshot> EntrySnapshots::find(std::uint32_t number, std::uint32_t after,
                                                                     std::uint32_t& found) {
    std::shared_ptr<const Kept> kept;
    {
        const std::lock_guard guard(lock_);
        std::size_t i = std::min<std::size_t>(number / base_interval_, kept_.size() - 1);
        while (i > 0 && !kept_[i]) --i;
        found = static_cast<std::uint32_t>(i) * base_interval_;
        if (i == 0 || found <= after) return nullptr;
        kept = kept_[i];
    }
    try {
        return kept->unpack();
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
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
        sets_.push_back(std::make_shared<EntrySnapshots>(entry, size, total_, most_bytes));
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

#include "engine/filesystem/sources/pack/checkpoints.h"

#include <algorithm>
#include <utility>

#include "engine/filesystem/sources/pack/entry_reader.h"

namespace fs {

EntryCheckpoints::EntryCheckpoints(std::uint32_t entry, std::uint32_t size, std::atomic<std::uint64_t>& total,
                                   std::uint64_t most)
    : total_(total), most_(most), entry_(entry) {
    const std::uint32_t blocks = size / EntryReader::block_size;
    while (blocks / interval_ > most_kept) interval_ *= 2;
    kept_.resize(blocks / interval_ + 1);
}

EntryCheckpoints::~EntryCheckpoints() { total_ -= held_; }

bool EntryCheckpoints::wants(std::uint32_t number) {
    const platform::LockGuard guard(lock_);
    return number != 0 && number % interval_ == 0 && number / interval_ < kept_.size() &&
           !kept_[number / interval_].state;
}

void EntryCheckpoints::add(std::uint32_t number, EntryCheckpoint checkpoint) {
    const std::uint64_t bytes = checkpoint.state->bytes();
    const platform::LockGuard guard(lock_);
    EntryCheckpoint& place = kept_[number / interval_];
    if (place.state) return;
    if (total_.fetch_add(bytes) + bytes > most_) {
        total_ -= bytes;
        return;
    }
    held_ += bytes;
    place = std::move(checkpoint);
}

EntryCheckpoint EntryCheckpoints::find(std::uint32_t number, std::uint32_t after, std::uint32_t& found) {
    const platform::LockGuard guard(lock_);
    std::size_t i = std::min<std::size_t>(number / interval_, kept_.size() - 1);
    while (i > 0 && !kept_[i].state) --i;
    found = static_cast<std::uint32_t>(i) * interval_;
    return found > after ? kept_[i] : EntryCheckpoint{};
}

std::shared_ptr<EntryCheckpoints> PackCheckpoints::of(std::uint32_t entry, std::uint32_t size) {
    if (size / EntryReader::block_size <= EntryCheckpoints::base_interval) return nullptr;
    const platform::LockGuard guard(lock_);
    const auto same = [entry](const auto& set) { return set->entry() == entry; };
    const auto found = std::find_if(sets_.begin(), sets_.end(), same);
    if (found != sets_.end()) {
        std::rotate(found, found + 1, sets_.end());
        return sets_.back();
    }
    make_room();
    sets_.push_back(std::make_shared<EntryCheckpoints>(entry, size, total_, most_bytes));
    return sets_.back();
}

/// When most of the memory is taken, gives up the sets that no open file uses, the longest unused first.
void PackCheckpoints::make_room() {
    for (std::size_t i = 0; i < sets_.size() && total_ > most_bytes / 2;) {
        if (sets_[i].use_count() == 1) {
            sets_.erase(sets_.begin() + static_cast<std::ptrdiff_t>(i));
        } else {
            ++i;
        }
    }
}

}  // namespace fs

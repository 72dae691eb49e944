#include "engine/filesystem/sources/pack/checkpoints.h"

#include <algorithm>
#include <utility>

#include "engine/filesystem/sources/pack/entry_reader.h"

namespace fs {

std::shared_ptr<EntryCheckpoints> PackCheckpoints::of(std::uint32_t entry, std::uint32_t size) {
    const std::uint32_t blocks = size / EntryReader::block_size;
    if (blocks <= base_interval) return nullptr;
    const platform::LockGuard guard(lock_);
    const auto found = std::ranges::find(sets_, entry, &EntryCheckpoints::entry);
    if (found != sets_.end()) {
        std::rotate(found, found + 1, sets_.end());
        return sets_.back();
    }
    make_room();
    const std::uint32_t interval = std::max(base_interval, blocks / most_kept + 1);
    sets_.push_back(std::make_shared<EntryCheckpoints>(
        EntryCheckpoints{entry, interval, std::vector<EntryCheckpoint>(blocks / interval + 1)}));
    return sets_.back();
}

/// When most of the memory is taken, gives up the sets that no open file uses, the longest unused first.
void PackCheckpoints::make_room() {
    for (auto set = sets_.begin(); set != sets_.end() && held_ > most_bytes / 2;) {
        if (set->use_count() != 1) {
            ++set;
            continue;
        }
        for (const EntryCheckpoint& kept : (*set)->kept) held_ -= kept.state ? kept.state->bytes() : 0;
        set = sets_.erase(set);
    }
}

bool PackCheckpoints::wants(const EntryCheckpoints& set, std::uint32_t number) {
    if (number == 0 || number % set.interval != 0 || number / set.interval >= set.kept.size()) return false;
    const platform::LockGuard guard(lock_);
    return !set.kept[number / set.interval].state;
}

void PackCheckpoints::add(EntryCheckpoints& set, std::uint32_t number, EntryCheckpoint checkpoint) {
    const std::uint64_t bytes = checkpoint.state->bytes();
    const platform::LockGuard guard(lock_);
    EntryCheckpoint& place = set.kept[number / set.interval];
    if (place.state || held_ + bytes > most_bytes) return;
    held_ += bytes;
    place = std::move(checkpoint);
}

EntryCheckpoint PackCheckpoints::find(const EntryCheckpoints& set, std::uint32_t number, std::uint32_t after,
                                      std::uint32_t& found) {
    const platform::LockGuard guard(lock_);
    std::size_t i = std::min<std::size_t>(number / set.interval, set.kept.size() - 1);
    while (i > 0 && !set.kept[i].state) --i;
    found = static_cast<std::uint32_t>(i) * set.interval;
    return found > after ? set.kept[i] : EntryCheckpoint{};
}

}  // namespace fs

#include "engine/filesystem/sources/pack/table.h"

#include <algorithm>
#include <atomic>
#include <cstring>

#include "engine/filesystem/sources/pack/bytes.h"
#include "engine/filesystem/sources/pack/text_sort.h"

// A group is all entries of one file name; they lie side by side. An answer is the group's first entry, in table order,
// whose directory and the one asked for are equal as far back as the shorter of them reaches. So even a full name may
// be answered by another entry: "b/" comes before "z/b/" and is its end.
//
// Small groups are walked through. For groups of many the same answer is found without walking:
//   full names     in an index of their own, each with its winner worked out when the table was built;
//   longer ends    (the directory asked for is the end of the entry's) lie side by side in by_end_;
//   shorter ends   (the entry's directory is the end of the one asked for) are looked up as full names.

namespace fs {

namespace {

/// Equal as far back as the shorter one reaches. Neither is empty.
bool ends_match(std::string_view a, std::string_view b) {
    const std::size_t length = std::min(a.size(), b.size());
    return std::memcmp(a.data() + (a.size() - length), b.data() + (b.size() - length), length) == 0;
}

bool ends_with(std::string_view text, std::string_view end) {
    return text.size() >= end.size() && ends_match(text, end);
}

/// Which of two texts, read backwards, comes first: below 0, 0 or above 0. `a` counts as equal when `b` is its end.
int compare_backwards(std::string_view a, std::string_view b) {
    for (std::size_t i = 1; i <= b.size(); ++i) {
        if (i > a.size()) return -1;
        const int difference =
            static_cast<unsigned char>(a[a.size() - i]) - static_cast<unsigned char>(b[b.size() - i]);
        if (difference != 0) return difference;
    }
    return 0;
}

}  // namespace

std::uint64_t PackTable::hash_full(std::uint32_t name_offset, std::string_view dir) {
    return hash_text(dir, name_offset + 1);
}

void PackIndex::reserve(std::size_t entries) { slots_.assign(entries == 0 ? 0 : entries * 10 / 7 + 2, vacant); }

void PackIndex::insert(std::uint64_t hash, std::uint16_t entry) {
    std::size_t slot = home(hash);
    while (slots_[slot] != vacant) slot = slot + 1 == slots_.size() ? 0 : slot + 1;
    slots_[slot] = tag(hash) | entry;
}

bool PackTable::has(std::uint32_t index, std::uint32_t bit) const {
    // The bits asked for here never change, but others of the same word do.
    auto& state = const_cast<std::uint32_t&>(entries_[index].state);
    return (std::atomic_ref<std::uint32_t>(state).load(std::memory_order_relaxed) & bit) != 0;
}

std::uint32_t PackTable::group_end(std::uint32_t first) const {
    const auto same = [this, first](const PackEntry& entry) {
        return entry.name_offset == entries_[first].name_offset;
    };
    return static_cast<std::uint32_t>(std::partition_point(entries_.begin() + first, entries_.end(), same) -
                                      entries_.begin());
}

std::uint16_t PackTable::winner(std::uint32_t index) const {
    return has(index, PackEntry::overruled) ? winners_[index] : static_cast<std::uint16_t>(index);
}

std::optional<std::uint32_t> PackTable::find(std::string_view dir, std::string_view name) const {
    const auto first = by_name_.find(hash_text(name), [&](std::uint32_t i) { return name_of(entries_[i]) == name; });
    if (!first || dir.empty()) return first;
    if (!has(*first, PackEntry::many)) return walk(*first, dir);
    if (const auto exact = find_exact(*first, dir)) return winner(*exact);
    return find_by_end(*first, dir);
}

std::optional<std::uint32_t> PackTable::find_exact(std::string_view dir, std::string_view name) const {
    auto i = by_name_.find(hash_text(name), [&](std::uint32_t at) { return name_of(entries_[at]) == name; });
    while (i && dir_of(entries_[*i]) != dir) {
        if (!has(*i, PackEntry::same_name)) return std::nullopt;
        ++*i;
    }
    return i;
}

std::optional<std::uint32_t> PackTable::walk(std::uint32_t first, std::string_view dir) const {
    for (std::uint32_t i = first;; ++i) {
        const std::string_view held = dir_of(entries_[i]);
        if (!held.empty() && ends_match(held, dir)) return i;
        if (!has(i, PackEntry::same_name)) return std::nullopt;
    }
}

std::optional<std::uint32_t> PackTable::find_exact(std::uint32_t first, std::string_view dir) const {
    const std::uint32_t name_offset = entries_[first].name_offset;
    return by_full_.find(hash_full(name_offset, dir), [&](std::uint32_t i) {
        return entries_[i].name_offset == name_offset && dir_of(entries_[i]) == dir;
    });
}

std::optional<std::uint32_t> PackTable::find_by_end(std::uint32_t first, std::string_view dir) const {
    std::uint32_t best = count();
    const auto begin = by_end_.begin() + first;
    const auto end = by_end_.begin() + group_end(first);
    const auto before = [this, dir](std::uint16_t i) { return compare_backwards(dir_of(entries_[i]), dir) < 0; };
    const auto equal = [this, dir](std::uint16_t i) { return ends_with(dir_of(entries_[i]), dir); };
    const auto low = std::partition_point(begin, end, before);
    const auto high = std::partition_point(low, end, equal);
    if (low != high) best = *std::min_element(low, high);
    for (std::size_t length = std::min<std::size_t>(dir.size() - 1, longest_dir_); length > 0; --length) {
        if (const auto exact = find_exact(first, dir.substr(dir.size() - length))) best = std::min(best, *exact);
    }
    if (best == count()) return std::nullopt;
    return best;
}

std::vector<std::string_view> PackTable::directories() const {
    std::vector<bool> seen(dirs_.size());
    std::vector<std::string_view> found;
    for (const PackEntry& entry : entries_) {
        if (entry.dir_length == 0 || seen[entry.dir_offset]) continue;
        seen[entry.dir_offset] = true;
        found.push_back(dir_of(entry));
    }
    std::vector<std::string_view> sorted;
    sorted.reserve(found.size());
    for (const std::uint32_t i : sorted_by_text(found)) sorted.push_back(found[i]);
    return sorted;
}

std::size_t PackTable::memory() const {
    return entries_.capacity() * sizeof(PackEntry) + by_name_.memory() + by_full_.memory() +
           (by_end_.capacity() + winners_.capacity()) * sizeof(std::uint16_t);
}

}  // namespace fs

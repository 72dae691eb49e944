#include <algorithm>
#include <string>
#include <utility>

#include "engine/filesystem/sources/pack/bytes.h"
#include "engine/filesystem/sources/pack/directory.h"
#include "engine/filesystem/sources/pack/table.h"
#include "engine/filesystem/sources/pack/text_sort.h"

// How a table comes about: entries in the order of their names, equal names in that of their directories. Both indices
// and, for names of many entries, the winners follow. All of it is linear in the entries but for the sorting of texts,
// of which each is looked at once.

namespace fs {

namespace {

constexpr std::uint32_t walked = 4;  // a group of so many entries is walked through in less time than an index takes

/// Puts the indices from `first` to `last`, which stand in their own order, into that of their ranks (all below
/// `ranks`); equal ranks keep their order.
template <class RankOf>
void order_by_rank(std::uint32_t* first, std::uint32_t* last, std::size_t ranks, RankOf rank_of) {
    if (static_cast<std::size_t>(last - first) * 8 < ranks) {
        std::stable_sort(first, last, [&](std::uint32_t a, std::uint32_t b) { return rank_of(a) < rank_of(b); });
        return;
    }
    std::vector<std::uint32_t> starts(ranks + 1, 0);
    for (const std::uint32_t* i = first; i < last; ++i) ++starts[rank_of(*i) + 1];
    for (std::size_t rank = 1; rank <= ranks; ++rank) starts[rank] += starts[rank - 1];
    const std::vector<std::uint32_t> before(first, last);
    for (const std::uint32_t i : before) first[starts[rank_of(i)]++] = i;
}

/// Puts the entries of each group, which have one name, into the order of their directories.
void order_groups(const PackDirectory& directory, const std::vector<TextRun>& groups,
                  std::vector<std::uint32_t>& order) {
    if (groups.empty()) return;
    const std::vector<std::uint32_t> sorted_dirs = sorted_by_text(directory.dirs);
    std::vector<std::uint32_t> ranks(sorted_dirs.size());
    for (std::uint32_t rank = 0; rank < ranks.size(); ++rank) ranks[sorted_dirs[rank]] = rank;
    for (const TextRun& group : groups) {
        order_by_rank(order.data() + group.first, order.data() + group.last, ranks.size(),
                      [&](std::uint32_t i) { return ranks[directory.records[i].dir]; });
    }
}

std::vector<std::uint32_t> count_up(std::uint32_t count) {
    std::vector<std::uint32_t> order(count);
    for (std::uint32_t i = 0; i < count; ++i) order[i] = i;
    return order;
}

/// The directories read backwards, in their order, and how far those reach that have each of them at their end.
struct Ends {
    std::vector<std::uint32_t> ranks;         // by directory
    std::vector<std::uint32_t> subtree_ends;  // by rank: the first rank behind that is no longer one of those
};

Ends rank_ends(const std::vector<std::string_view>& dirs) {
    std::string text;
    std::vector<std::string_view> backwards;
    std::size_t size = 0;
    for (const std::string_view dir : dirs) size += dir.size();
    text.reserve(size);
    for (const std::string_view dir : dirs) {
        const std::size_t start = text.size();
        text.append(dir.rbegin(), dir.rend());
        backwards.emplace_back(text.data() + start, dir.size());
    }
    const std::vector<std::uint32_t> order = sorted_by_text(backwards);
    Ends ends{std::vector<std::uint32_t>(dirs.size()), std::vector<std::uint32_t>(dirs.size())};
    std::vector<std::uint32_t> open;  // ranks of which the present one is a continuation
    for (std::uint32_t rank = 0; rank < order.size(); ++rank) {
        ends.ranks[order[rank]] = rank;
        while (!open.empty() && !backwards[order[rank]].starts_with(backwards[order[open.back()]])) {
            ends.subtree_ends[open.back()] = rank;
            open.pop_back();
        }
        open.push_back(rank);
    }
    for (const std::uint32_t rank : open) ends.subtree_ends[rank] = static_cast<std::uint32_t>(order.size());
    return ends;
}

/// Works out, for the entries of one group, the first entry in table order among those whose directory is the end of
/// the entry's and those whose directory the entry's is the end of. Entries come in the order of their end ranks, so
/// that the former are a stack.
class WinnerSearch {
public:
    WinnerSearch(const Ends& ends, std::vector<std::uint16_t>& winners) : ends_(ends), winners_(winners) {}

    void add(std::uint16_t entry, std::uint32_t rank) {
        while (!open_.empty() && rank >= ends_.subtree_ends[open_.back().rank]) close();
        const std::uint16_t above = open_.empty() ? no_entry : std::min(open_.back().above, open_.back().entry);
        open_.push_back({entry, above, entry, rank});
    }
    void finish() {
        while (!open_.empty()) close();
    }

private:
    static constexpr std::uint16_t no_entry = 0xFFFF;

    struct Open {
        std::uint16_t entry;
        std::uint16_t above;  // the first entry among those that are ends of this one
        std::uint16_t below;  // the first entry among this one and those that it is an end of
        std::uint32_t rank;
    };

    void close() {
        const Open closed = open_.back();
        open_.pop_back();
        winners_[closed.entry] = std::min(closed.above, closed.below);
        if (!open_.empty()) open_.back().below = std::min(open_.back().below, closed.below);
    }

    const Ends& ends_;
    std::vector<std::uint16_t>& winners_;
    std::vector<Open> open_;
};

}  // namespace

void PackTable::build(PackDirectory&& directory) {
    const auto count = static_cast<std::uint32_t>(directory.records.size());
    std::vector<std::string_view> names;
    names.reserve(count);
    for (const PackRecord& record : directory.records) {
        names.emplace_back(directory.names.data() + record.name_offset, record.name_length);
    }
    std::vector<TextRun> groups;
    std::vector<std::uint32_t> order = sorted_by_text(names, &groups);
    order_groups(directory, groups, order);
    place_entries(directory, order);
    names_ = std::move(directory.names);
    dirs_ = std::move(directory.dir_text);  // `directory.dirs` still points into it
    mark_groups(groups);
    index_names(groups);
    std::erase_if(groups, [](const TextRun& group) { return group.last - group.first <= walked; });
    if (!groups.empty()) {
        index_full_names(groups);
        choose_winners(directory, order);
    }
    names_.shrink_to_fit();
    dirs_.shrink_to_fit();
}

void PackTable::place_entries(const PackDirectory& directory, const std::vector<std::uint32_t>& order) {
    std::vector<std::uint32_t> dir_offsets;
    dir_offsets.reserve(directory.dirs.size());
    for (const std::string_view dir : directory.dirs) {
        dir_offsets.push_back(dir.empty() ? 0 : static_cast<std::uint32_t>(dir.data() - directory.dir_text.data()));
        longest_dir_ = std::max(longest_dir_, static_cast<std::uint32_t>(dir.size()));
    }
    entries_.reserve(order.size());
    for (const std::uint32_t i : order) {
        const PackRecord& record = directory.records[i];
        entries_.push_back({.dir_offset = dir_offsets[record.dir],
                            .name_offset = record.name_offset,
                            .dir_length = static_cast<std::uint16_t>(directory.dirs[record.dir].size()),
                            .name_length = record.name_length,
                            .header_offset = record.header_offset,
                            .size = record.size,
                            .packed_size = record.packed_size,
                            .crc = record.crc,
                            .state = 0});
    }
}

void PackTable::mark_groups(const std::vector<TextRun>& groups) {
    for (const TextRun& group : groups) {
        const std::uint32_t many = group.last - group.first > walked ? PackEntry::many : 0;
        for (std::uint32_t i = group.first; i < group.last; ++i) {
            entries_[i].state = many | (i + 1 < group.last ? PackEntry::same_name : 0);
            entries_[i].name_offset = entries_[group.first].name_offset;
        }
    }
}

void PackTable::index_names(const std::vector<TextRun>& groups) {
    std::size_t names = entries_.size();
    for (const TextRun& group : groups) names -= group.last - group.first - 1;
    by_name_.reserve(names);
    bool begins_group = true;
    for (std::uint32_t i = 0; i < count(); ++i) {
        if (begins_group) by_name_.insert(hash_text(name(i)), static_cast<std::uint16_t>(i));
        begins_group = (entries_[i].state & PackEntry::same_name) == 0;
    }
}

/// Of equal full names, which lie side by side, the first.
void PackTable::index_full_names(const std::vector<TextRun>& groups) {
    std::size_t crowded = 0;
    for (const TextRun& group : groups) crowded += group.last - group.first;
    by_full_.reserve(crowded);
    for (const TextRun& group : groups) {
        for (std::uint32_t i = group.first; i < group.last; ++i) {
            if (i > group.first && dir(i - 1) == dir(i)) continue;
            by_full_.insert(hash_full(entries_[i].name_offset, dir(i)), static_cast<std::uint16_t>(i));
        }
    }
}

void PackTable::choose_winners(const PackDirectory& directory, const std::vector<std::uint32_t>& order) {
    const Ends ends = rank_ends(directory.dirs);
    const auto rank_of = [&](std::uint32_t i) { return ends.ranks[directory.records[order[i]].dir]; };
    std::vector<std::uint32_t> places(count());  // where the next entry of a group goes; by the group's first entry
    std::vector<std::uint32_t> firsts(count());  // by entry: its group's first
    for (std::uint32_t i = 0; i < count(); ++i) {
        const bool follows = i > 0 && (entries_[i - 1].state & PackEntry::same_name) != 0;
        firsts[i] = follows ? firsts[i - 1] : i;
        places[i] = i;
    }
    by_end_.resize(count());
    std::vector<std::uint32_t> by_rank = count_up(count());
    order_by_rank(by_rank.data(), by_rank.data() + count(), directory.dirs.size(), rank_of);
    for (const std::uint32_t i : by_rank) {
        by_end_[places[firsts[i]]++] = static_cast<std::uint16_t>(i);
    }
    winners_.resize(count());
    WinnerSearch search(ends, winners_);
    for (std::uint32_t place = 0; place < count(); ++place) {
        const std::uint16_t i = by_end_[place];
        if (firsts[i] == place) search.finish();  // a new group begins
        winners_[i] = i;
        if (directory.records[order[i]].dir != 0) search.add(i, rank_of(i));
    }
    search.finish();
    bool any = false;
    for (std::uint32_t i = 0; i < count(); ++i) {
        if (winners_[i] == i || (entries_[i].state & PackEntry::many) == 0) continue;
        entries_[i].state |= PackEntry::overruled;
        any = true;
    }
    if (!any) std::vector<std::uint16_t>().swap(winners_);
}

}  // namespace fs

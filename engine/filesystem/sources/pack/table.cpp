#include "engine/filesystem/sources/pack/table.h"

#include <algorithm>

#include "engine/filesystem/sources/pack/directory.h"

// A lookup takes the first file in the order of adding, so the files are added in the order of the table.

namespace fs {

namespace {

/// The first eight bytes of a name, the first one highest; most names are told apart by them alone.
std::uint64_t beginning_of(std::string_view name) {
    std::uint64_t beginning = 0;
    for (std::size_t i = 0; i < 8; ++i) {
        beginning = beginning << 8 | (i < name.size() ? static_cast<unsigned char>(name[i]) : 0u);
    }
    return beginning;
}

struct SortKey {
    std::uint64_t beginning;
    std::string_view name;
    std::uint32_t dir_rank;
    std::uint32_t record;

    bool operator<(const SortKey& other) const {
        if (beginning != other.beginning) return beginning < other.beginning;
        if (const int order = name.compare(other.name); order != 0) return order < 0;
        if (dir_rank != other.dir_rank) return dir_rank < other.dir_rank;
        return record < other.record;
    }
};

/// The indices of the directories in the order of their texts.
std::vector<std::uint32_t> sorted_dirs(const std::vector<std::string_view>& dirs) {
    std::vector<std::uint32_t> order(dirs.size());
    for (std::uint32_t i = 0; i < order.size(); ++i) order[i] = i;
    std::sort(order.begin(), order.end(), [&](std::uint32_t a, std::uint32_t b) { return dirs[a] < dirs[b]; });
    return order;
}

std::vector<SortKey> sorted_records(const PackDirectory& directory, const std::vector<std::uint32_t>& dir_order) {
    std::vector<std::uint32_t> ranks(dir_order.size());
    for (std::uint32_t rank = 0; rank < ranks.size(); ++rank) ranks[dir_order[rank]] = rank;
    std::vector<SortKey> keys;
    keys.reserve(directory.records.size());
    for (const PackRecord& record : directory.records) {
        const std::string_view name(directory.names.data() + record.name_offset, record.name_length);
        keys.push_back({beginning_of(name), name, ranks[record.dir], static_cast<std::uint32_t>(keys.size())});
    }
    std::sort(keys.begin(), keys.end());
    return keys;
}

}  // namespace

void PackTable::build(PackDirectory&& directory) {
    const std::vector<std::uint32_t> dir_order = sorted_dirs(directory.dirs);
    std::vector<std::uint32_t> dir_numbers(dir_order.size());
    for (const std::uint32_t dir : dir_order) {
        dir_numbers[dir] = names_.intern_dir(directory.dirs[dir]);
        if (!directory.dirs[dir].empty()) dirs_.push_back(dir_numbers[dir]);
    }
    entries_.reserve(directory.records.size());
    names_.reserve(directory.records.size(), directory.names.size());
    for (const SortKey& key : sorted_records(directory, dir_order)) {
        const PackRecord& record = directory.records[key.record];
        entries_.push_back({.file = names_.add(dir_numbers[record.dir], key.name, count()),
                            .header_offset = record.header_offset,
                            .size = record.size,
                            .packed_size = record.packed_size,
                            .state = 0});
    }
}

std::vector<std::string_view> PackTable::directories() const {
    std::vector<std::string_view> texts;
    texts.reserve(dirs_.size());
    for (const std::uint32_t dir : dirs_) texts.push_back(names_.dir_text(dir));
    return texts;
}

}  // namespace fs

#include "engine/filesystem/sources/pack/table.h"

#include <algorithm>
#include <numeric>
#include <utility>

// A lookup takes the first file in the order of adding, so the files are added in the order of the table.

namespace fs {

namespace {

/// The first eight bytes of a name, the first one highest; most names are told apart by them alone.
std::uint64_t beginning_of(std::string_view name) {
    std::uint64_t beginning = 0;
    for (std::size_t i = 0; i < 8; ++i)
        beginning = beginning << 8 | (i < name.size() ? static_cast<unsigned char>(name[i]) : 0u);
    return beginning;
}

struct SortKey {
    std::uint64_t beginning;
    std::string_view name;
    std::uint32_t dir_rank;
    std::uint32_t file;

    bool operator<(const SortKey& other) const {
        if (beginning != other.beginning) return beginning < other.beginning;
        if (const int order = name.compare(other.name); order != 0) return order < 0;
        if (dir_rank != other.dir_rank) return dir_rank < other.dir_rank;
        return file < other.file;
    }
};

}  // namespace

std::vector<std::string_view> PackTable::directories() const {
    std::vector<std::string_view> texts;
    for (const std::uint32_t dir : dirs_) {
        if (!names_.dir_text(dir).empty()) texts.push_back(names_.dir_text(dir));
    }
    return texts;
}

void PackTableBuilder::add(std::string_view dir, std::string_view name, const PackEntry& told) {
    // Neighbours in a pack mostly share their directory.
    const bool same = !files_.empty() && table_.names_.dir_text(table_.dirs_[files_.back().dir]) == dir;
    files_.push_back({.told = told,
                      .name_offset = static_cast<std::uint32_t>(names_.size()),
                      .name_size = static_cast<std::uint32_t>(name.size()),
                      .dir = same ? files_.back().dir : index_of(dir)});
    names_.append(name);
}

/// A new directory has a higher number than those before.
std::uint32_t PackTableBuilder::index_of(std::string_view dir) {
    const std::uint32_t number = table_.names_.intern_dir(dir);
    const auto place = std::lower_bound(table_.dirs_.begin(), table_.dirs_.end(), number);
    const auto index = static_cast<std::uint32_t>(place - table_.dirs_.begin());
    if (place == table_.dirs_.end()) table_.dirs_.push_back(number);
    return index;
}

PackTable PackTableBuilder::finish() {
    const std::vector<std::uint32_t> dirs = table_.dirs_;
    std::vector<std::uint32_t> order(dirs.size());
    std::vector<std::uint32_t> ranks(dirs.size());
    std::iota(order.begin(), order.end(), 0u);
    std::sort(order.begin(), order.end(), [&](std::uint32_t a, std::uint32_t b) {
        return table_.names_.dir_text(dirs[a]) < table_.names_.dir_text(dirs[b]);
    });
    for (std::uint32_t rank = 0; rank < order.size(); ++rank) {
        ranks[order[rank]] = rank;
        table_.dirs_[rank] = dirs[order[rank]];
    }
    std::vector<SortKey> keys;
    keys.reserve(files_.size());
    for (const File& file : files_) {
        const std::string_view name(names_.data() + file.name_offset, file.name_size);
        keys.push_back({beginning_of(name), name, ranks[file.dir], static_cast<std::uint32_t>(keys.size())});
    }
    std::sort(keys.begin(), keys.end());
    table_.entries_.reserve(files_.size());
    table_.names_.reserve(files_.size(), names_.size());
    for (const SortKey& key : keys) {
        const File& file = files_[key.file];
        table_.entries_.push_back(file.told);
        table_.entries_.back().file = table_.names_.add(dirs[file.dir], key.name, table_.count() - 1);
    }
    return std::move(table_);
}

}  // namespace fs

#include "page/contents.h"

#include <algorithm>
#include <map>
#include <unordered_set>

bool Contents::add(const std::string& path) {
    Place& place = places_.emplace_back();
    place.name = path != "." ? path : fs::from_path(fs::to_path(full_native_path(path)).filename());
    if (!place.tree.open(path)) return false;
    is_whole_ = place.tree.is_whole() && is_whole_;
    place.tree.is_pack() ? add_entries(place.tree) : add_disk_files(place.tree);
    return true;
}

void Contents::add_entries(const Tree& tree) {
    for (const SFsPackEntry& entry : tree.entries())
        files_.push_back({.name = entry.name,
                          .key = normalised(entry.name),
                          .place = places_.size() - 1,
                          .size = entry.size,
                          .packed = entry.packed_size,
                          .method = entry.method,
                          .crc = entry.crc});
}

void Contents::add_disk_files(const Tree& tree) {
    for (const std::string& name : tree.names()) {
        const std::string path = tree.native_path(name);
        const std::uint64_t size = tree.size_of(name);
        if (size == failed)
            is_whole_ = fail_with_last_error(path, "it cannot be read");
        else
            files_.push_back({.name = path.substr(path.size() - std::min(path.size(), name.size())),
                              .key = name,
                              .place = places_.size() - 1,
                              .size = size,
                              .packed = size});
    }
}

void Contents::find_winners() {
    for (std::size_t i = 0; i < files_.size(); ++i)
        if (places_[files_[i].place].tree.holds(files_[i].key)) winners_.emplace(files_[i].key, i);
    for (ContainedFile& file : files_)
        if (places_[file.place].tree.holds(file.key)) file.winner = winners_.at(file.key);
}

bool Contents::read_record(const std::string& path) {
    std::vector<std::string> lines;
    if (!read_lines(path, lines)) return false;
    std::unordered_set<std::size_t> known;
    for (const std::string& line : lines) {
        const auto found = winners_.find(normalised(line));
        if (found == winners_.end())
            ++unknown_names_;
        else if (known.insert(found->second).second)
            record_.push_back(found->second);
    }
    return true;
}

/// An entry that another of its pack hides cannot.
bool Contents::can_be_read(std::size_t i) const {
    const std::size_t winner = files_[i].winner;
    return winner == i || (winner != ContainedFile::nobody && files_[winner].place != files_[i].place);
}

bool Contents::same_content(std::size_t a, std::size_t b) const {
    const auto open = [this](const ContainedFile& file) { return places_[file.place].tree.open_file(file.key); };
    return same_bytes(open(files_[a]).get(), open(files_[b]).get(), files_[b].name);
}

std::vector<EqualFiles> Contents::equal_files(bool exact) {
    std::map<std::uint64_t, std::vector<std::size_t>> sizes;
    for (std::size_t i = 0; i < files_.size(); ++i)
        if (files_[i].size != 0 && (!exact || can_be_read(i))) sizes[files_[i].size].push_back(i);
    std::erase_if(sizes, [](const auto& group) { return group.second.size() < 2; });
    std::uint64_t total = 0;
    for (const auto& [size, group] : sizes) total += group.size();
    Progress progress("report: equal files", total, false);
    const auto crc_of = [&](std::size_t i, std::uint64_t, std::uint32_t& crc) {
        progress.add(1);
        const Tree& tree = places_[files_[i].place].tree;
        crc = files_[i].crc;
        return tree.is_pack() || tree.crc_of(files_[i].key, crc);
    };
    const auto same = [&](std::size_t a, std::size_t b) { return !exact || same_content(a, b); };
    std::vector<EqualFiles> all;
    const auto add = [&](std::uint64_t, std::uint32_t, const std::vector<std::size_t>& files) {
        EqualFiles equal{.files = files};
        std::uint64_t least = failed;
        for (const std::size_t i : files) {
            equal.wasted += files_[i].packed;
            least = std::min(least, files_[i].packed);
        }
        equal.wasted -= least;
        all.push_back(std::move(equal));
    };
    is_whole_ = find_equal(sizes, crc_of, same, add) && is_whole_;
    std::ranges::stable_sort(all, std::ranges::greater(), &EqualFiles::wasted);
    return all;
}

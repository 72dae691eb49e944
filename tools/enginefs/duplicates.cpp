// duplicates: names that several sources hold, and files of equal content.

#include <algorithm>
#include <cinttypes>
#include <map>
#include <vector>

#include <engine/filesystem.h>

#include "commands.h"
#include "equal.h"
#include "names.h"
#include "report.h"
#include "result.h"
#include "terminal.h"

namespace {

using Names = std::vector<std::string>;

bool same_content(const std::string& a, const std::string& b) {
    const fs::file_ptr first(fs::open(a.c_str(), EFSMode::READ));
    const fs::file_ptr second(fs::open(b.c_str(), EFSMode::READ));
    return same_bytes(first.get(), second.get(), b);
}

void show_shadowed(const Names& names, Listing& listing) {
    Progress progress("duplicates: names", names.size(), false);
    for (const std::string& name : names) {
        progress.add(1);
        std::vector<SFsSourceInfo> holders = holders_of(name);
        // The disk itself shows what lies below the current directory: that is no second file.
        std::erase_if(holders, [](const SFsSourceInfo& holder) { return place_of(holder).empty(); });
        if (holders.size() < 2) continue;
        std::string lines = "held by " + std::to_string(holders.size()) + " sources: " + shown(name);
        Names places;
        for (const SFsSourceInfo& holder : holders) {
            lines += "\n    " + shown(place_of(holder), places.empty() ? Color::PLAIN : Color::SHADOWED) +
                     (places.empty() ? "" : " (shadowed)");
            places.push_back(place_of(holder));
        }
        listing.add(name, lines, [&] { return Json{{"name", name}, {"places", places}}; });
    }
}

/// Sizes first: a file whose size is its own is not read at all.
std::map<std::uint64_t, Names> group_by_size(const Names& names, bool& good) {
    Progress progress("duplicates: sizes", names.size(), false);
    std::map<std::uint64_t, Names> groups;
    for (const std::string& name : names) {
        progress.add(1);
        const fs::file_ptr file = open_file(name);
        const std::uint64_t size = fs::length(file.get());
        if (size != failed)
            groups[size].push_back(name);
        else
            good = file == nullptr ? false : fail_with_last_error(name, "its length is not known");
    }
    std::erase_if(groups, [](const auto& group) { return group.second.size() < 2; });
    return groups;
}

void show_group(std::uint64_t size, std::uint32_t crc, const Names& names, Listing& listing) {
    if (names.size() < 2) return;
    std::string lines = formatted("equal content, %" PRIu64 " bytes, crc %08" PRIx32 ":", size, crc);
    for (const std::string& name : names) lines += "\n    " + shown(name);
    listing.add(names[0], lines, [&] { return Json{{"size", size}, {"crc", crc}, {"names", names}}; });
}

/// Shows what is equal among files of one size.
bool show_equal_of(std::uint64_t size, const Names& names, Progress& progress, Listing& listing) {
    bool good = true;
    std::map<std::uint32_t, Names> checksums;
    for (const std::string& name : names) {
        std::uint32_t crc = 0;
        if (attempt(name, "it cannot be read", [&] { return fs::calc_file_crc(name.c_str(), crc); }))
            checksums[crc].push_back(name);
        else
            good = false;
        progress.add(size);
    }
    for (const auto& [crc, files] : checksums)
        if (files.size() > 1)
            for (const Names& same : split_by(files, same_content)) show_group(size, crc, same, listing);
    return good;
}

bool show_equal(const Names& names, Listing& listing) {
    bool good = true;
    const std::map<std::uint64_t, Names> sizes = group_by_size(names, good);
    std::uint64_t total = 0;
    for (const auto& [size, group] : sizes) total += size * group.size();
    Progress progress("duplicates: content", total, true);
    for (auto group = sizes.rbegin(); group != sizes.rend(); ++group)
        good = show_equal_of(group->first, group->second, progress, listing) && good;
    return good;
}

struct Given {
    bool names_only = false;
    bool content_only = false;
};

bool duplicates(const Given& given) {
    Names names = list_files();
    names.erase(std::unique(names.begin(), names.end()), names.end());
    Listing listing;
    if (!given.content_only) show_shadowed(names, listing);
    const bool good = given.names_only || show_equal(names, listing);
    return listing.finish() && good;
}

}  // namespace

void add_duplicates_command(Commands& commands) {
    const auto added = commands.add(
        "duplicates", "Show the names that several sources hold, and the files of equal content, the largest first",
        duplicates);
    CLI::Option* const names_only =
        added->add_flag("--names", added.given.names_only, "Only the names, which costs no reading");
    added->add_flag("--content", added.given.content_only, "Only the content")->excludes(names_only);
    commands.add_json(added);
}

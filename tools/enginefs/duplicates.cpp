// duplicates: names that several sources hold, and files of equal content.

#include <cinttypes>

#include "command.h"

namespace {

using Files = std::vector<std::string>;

bool same_content(const std::string& a, const std::string& b) {
    const fs::file_ptr first(fs::open(a.c_str(), EFSMode::READ));
    const fs::file_ptr second(fs::open(b.c_str(), EFSMode::READ));
    return same_bytes(first.get(), second.get(), b);
}

void show_shadowed(const Files& names, Listing& listing) {
    Progress progress("duplicates: names", names.size(), false);
    for (const std::string& name : names) {
        progress.add(1);
        std::vector<SFsSourceInfo> holders = holders_of(name);
        // The disk itself shows what lies below the current directory: that is no second file.
        std::erase_if(holders, [](const SFsSourceInfo& holder) { return place_of(holder).empty(); });
        if (holders.size() < 2) continue;
        std::string lines = "held by " + std::to_string(holders.size()) + " sources: " + shown(name);
        Files places;
        for (const SFsSourceInfo& holder : holders) {
            lines += "\n    " + shown(place_of(holder), places.empty() ? Color::PLAIN : Color::SHADOWED) +
                     (places.empty() ? "" : " (shadowed)");
            places.push_back(place_of(holder));
        }
        listing.add({{"name", name}, {"places", json_array(places)}}, lines);
    }
}

using Sizes = std::map<std::uint64_t, Files, std::greater<>>;

/// Sizes first: a file whose size is its own is not read at all.
Sizes group_by_size(const Files& names, bool& good) {
    Progress progress("duplicates: sizes", names.size(), false);
    Sizes groups;
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

bool show_equal(const Files& names, Listing& listing) {
    bool good = true;
    const Sizes sizes = group_by_size(names, good);
    std::uint64_t total = 0;
    for (const auto& [size, group] : sizes) total += size * group.size();
    Progress progress("duplicates: content", total, true);
    const auto crc_of = [&](const std::string& name, std::uint64_t size, std::uint32_t& crc) {
        progress.add(size);
        return attempt(name, "it cannot be read", [&] { return fs::calc_file_crc(name.c_str(), crc); });
    };
    const auto show = [&](std::uint64_t size, std::uint32_t crc, const Files& equal) {
        std::string lines = formatted("equal content, %" PRIu64 " bytes, crc %08" PRIx32 ":", size, crc);
        for (const std::string& name : equal) lines += "\n    " + shown(name);
        listing.add({{"size", size}, {"crc", crc}, {"names", json_array(equal)}}, lines);
    };
    return find_equal(sizes, crc_of, same_content, show) && good;
}

struct Given {
    bool names_only = false;
    bool content_only = false;
};

bool duplicates(const Given& given) {
    const Files names = list_files();
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
    commands.add_json(added.app);
}

// sources, ls, find, stat, which: what is there, and who wins.

#include <algorithm>
#include <set>

#include "command.h"

namespace {

const char* kind_of(const SFsSourceInfo& source) {
    if (source.type == EFSSourceType::PLS) return "memory";
    if (source.type == EFSSourceType::PACK) return "pack";
    if (source.type == EFSSourceType::DIR) return "directory";
    return place_of(source).empty() ? "fallback" : "root";
}

std::string told_place(const SFsSourceInfo& source) {
    const std::string place = place_of(source);
    return place.empty() ? "(the disk itself)" : place;
}

Color color_of(const SFsSourceInfo& source) {
    return source.type == EFSSourceType::PACK ? Color::PACK : Color::DIRECTORY;
}

struct NoArguments {};

/// Further parts of packs that were split, by the places of the first.
std::map<std::string, std::vector<std::string>> parts_of(const std::vector<SFsSourceInfo>& sources) {
    std::set<std::string> packs;
    for (const SFsSourceInfo& source : sources)
        if (source.type == EFSSourceType::PACK) packs.insert(place_of(source));
    std::map<std::string, std::vector<std::string>> parts;
    for (const std::string& pack : packs)
        for (std::string part; packs.contains(part = part_of(pack, 2 + parts[pack].size()));)
            parts[pack].push_back(part);
    return parts;
}

bool show_sources(const NoArguments&) {
    Listing listing;
    const std::vector<SFsSourceInfo> sources = all_sources();
    std::set<std::string> told;
    std::map<std::string, std::vector<std::string>> parts = parts_of(sources);
    for (const auto& [pack, others] : parts) told.insert(others.begin(), others.end());
    for (const SFsSourceInfo& source : sources) {
        const std::string place = told_place(source);
        if (!told.insert(place).second) continue;
        const std::vector<std::string>& others = parts[place];
        const std::string line = formatted("%-10s %-9s ", kind_of(source), source.writable ? "writable" : "read-only") +
                                 shown(place, color_of(source)) +
                                 (others.empty() ? "" : " (" + std::to_string(1 + others.size()) + " parts)") +
                                 (source.is_protected ? " (protected)" : "");
        std::string all = place;
        for (const std::string& part : others) (all += '\0') += part;
        listing.add({{"place", place},
                     {"kind", kind_of(source)},
                     {"writable", source.writable},
                     {"protected", source.is_protected},
                     {"parts", json_array(others)}},
                    line, all);
    }
    return listing.finish();
}

struct Ls {
    std::vector<std::string> names;
    std::string mask;
    bool recursive = false;
    bool long_form = false;
    NameForm form;
};

std::vector<std::string> subdirectories(const std::string& dir) {
    std::set<std::string> names;
    const fs::idir* const node = fs::search_dir(dir.c_str());
    for (const fs::idir* child = node != nullptr ? node->first_child() : nullptr; child != nullptr;
         child = child->next_sibling())
        names.insert((dir.empty() ? "" : dir + "/") + child->name());
    return {names.begin(), names.end()};
}

void add_file(Listing& listing, const std::string& file, const Ls& options) {
    const std::string name = told_name(file, options.form);
    if (!options.long_form) return listing.add({{"name", name}, {"kind", "file"}});
    const std::uint64_t size = fs::length(fs::open_file(file.c_str(), EFSMode::READ).get());
    const Json time = json_or_null(time_on_disk(place_on_disk(file)));
    listing.add({{"name", name}, {"kind", "file"}, {"size", json_or_null(size), 12}, {"time", time, -20}});
}

bool list_directory(Listing& listing, const Ls& options, const std::string& given) {
    std::string dir = normalised(given);
    if (dir.ends_with('/')) dir.pop_back();
    for (const SFsSourceInfo& source : all_sources()) {  // a full path is one below its source
        const std::string place = place_of(source);
        if (place.ends_with('/') && (dir + "/").starts_with(place)) dir.erase(0, place.size());
    }
    const std::vector<std::string> files = list_files(dir.c_str(), options.mask.c_str(), options.recursive);
    std::vector<std::string> dirs;
    if (!options.recursive && options.mask.empty() && !options.form.native) dirs = subdirectories(dir);
    if (files.empty() && dirs.empty() && !is_indexed(dir) && !dir.empty())
        return fail(given, "no source has such a directory");
    if (files.empty() && !options.mask.empty()) return fail(options.mask, "no file matches");
    const std::string columns(options.long_form ? 36 : 0, ' ');
    for (const std::string& name : dirs)
        listing.add({{"name", name}, {"kind", "directory"}}, columns + shown(name, Color::DIRECTORY) + "/");
    for (const std::string& file : files) add_file(listing, file, options);
    return true;
}

bool list(const Ls& options) {
    Listing listing;
    const auto names = options.names.empty() ? std::vector<std::string>{""} : options.names;
    const bool good = for_each_file(names, [&](const std::string& name) {
        if (!is_listed(name)) return list_directory(listing, options, name);
        add_file(listing, normalised(name), options);
        return true;
    });
    return listing.finish() && good;
}

struct Find {
    std::vector<std::string> texts;
    NameForm form;
};

bool find(const Find& given) {
    bool good = true;
    std::set<std::string> found;
    const std::vector<std::string> all = list_files();
    for (const std::string& text : given.texts) {
        const std::string wanted = lower_case(text);
        bool any = false;
        for (const std::string& name : all) {
            if (is_pattern(wanted) ? !matches(wanted, name) : name.find(wanted) == std::string::npos) continue;
            found.insert(name);
            any = true;
        }
        if (!any) good = fail(text, is_pattern(wanted) ? "no file matches" : "no name contains it");
    }
    Listing listing;
    for (const std::string& file : found) listing.add({{"name", told_name(file, given.form)}});
    return listing.finish() && good;
}

struct Which {
    std::vector<std::string> names;
    bool all = false;
};

bool which(const Which& given) {
    Listing listing;
    const bool good = for_each_file(given.names, [&](const std::string& name) {
        const std::vector<SFsSourceInfo> holders = holders_of(name);
        if (holders.empty()) return fail_not_held(name);
        for (std::size_t i = 0; i < (given.all ? holders.size() : 1); ++i) {
            const std::string place = told_place(holders[i]);
            const Color color = i == 0 ? color_of(holders[i]) : Color::SHADOWED;
            listing.add({{"place", place}, {"name", name}, {"shadowed", i != 0}},
                        shown(place, color) + (i == 0 ? "" : " (shadowed)"));
        }
        return true;
    });
    return listing.finish() && good;
}

Fields facts_of(const std::string& name, const std::vector<SFsSourceInfo>& holders, SFsFile* file) {
    const auto say = [&](auto call) { return ask(name, [&] { return call(name.c_str()); }); };
    // The disk itself shows what lies below the current directory: that is no second file.
    const auto is_shadowed = [](const SFsSourceInfo& holder) { return !place_of(holder).empty(); };
    return {{"name", std::string(say(fs::root_path))},
            {"source", told_place(holders[0])},
            {"kind", kind_of(holders[0])},
            {"full_path", told_name(name, {.native = true})},
            {"size", json_or_null(ask(name, [&] { return fs::length(file); }))},
            {"time", json_or_null(time_on_disk(place_on_disk(name)))},
            {"read_only", say(fs::read_only)},
            {"protected", say(fs::is_protected)},
            {"shadows", std::count_if(holders.begin() + 1, holders.end(), is_shadowed)}};
}

std::string lines_of(const Fields& facts) {
    std::string lines;
    for (const auto& [key, value, width] : facts) {
        const std::string text = value.is_null()      ? "unknown"
                                 : value.is_boolean() ? (value ? "yes" : "no")
                                 : value.is_string()  ? shown(value)
                                                      : value.dump();
        std::string label = formatted("%-11s", key);
        std::ranges::replace(label, '_', ' ');
        lines.append(lines.empty() ? "" : "\n").append(label).append(text);
    }
    return lines;
}

bool show_files(const Names& given) {
    Listing listing;
    const bool good = for_each_file(given.names, [&](const std::string& name) {
        const std::vector<SFsSourceInfo> holders = holders_of(name);
        if (holders.empty()) return fail_not_held(name);
        const fs::file_ptr file = open_file(name);
        if (file == nullptr) return false;
        const Fields facts = facts_of(name, holders, file.get());
        listing.add(facts, lines_of(facts));
        return true;
    });
    return listing.finish() && good;
}

}  // namespace

void add_listing_commands(Commands& commands) {
    const auto sources = commands.add("sources", "Show the sources in the order in which they are asked", show_sources);
    commands.add_forms(sources.app, "The places");

    const auto ls = commands.add("ls", "List the files and directories of a directory, all sources merged", list);
    ls->add_option("NAME", ls.given.names, "Directories and files (default: the root)");
    add_option(ls.app, "--mask P", ls.given.mask, "Only file names that match, with * and ?");
    ls->add_flag("-r,--recursive", ls.given.recursive, "Everything below the directory");
    ls->add_flag("--long", ls.given.long_form, "Size of each file in bytes, and time in UTC");
    commands.add_forms_of_files(ls);

    const auto find_command = commands.add("find", "Find the names that contain a text, or match a pattern", find);
    find_command->add_option("TEXT", find_command.given.texts)->required();
    commands.add_forms_of_files(find_command);

    const auto stat_command = commands.add("stat", "Show what is known of files", show_files);
    stat_command->add_option("NAME", stat_command.given.names)->required();
    commands.add_forms(stat_command.app);

    const auto which_command = commands.add("which", "Show the source that a name is read from", which);
    which_command->add_option("NAME", which_command.given.names)->required();
    which_command->add_flag("--all", which_command.given.all,
                            "Every source that holds the name, in asking order; those that lose are marked");
    commands.add_forms(which_command.app, "The places");
}

// sources, ls, find, stat, which: what is there, and who wins.

#include <set>

#include <nlohmann/json.hpp>

#include <engine/filesystem.h>

#include "commands.h"
#include "names.h"
#include "report.h"

namespace {

using Json = nlohmann::ordered_json;

const char* kind_of(const SFsSourceInfo& source) {
    if (source.type == EFSSourceType::PLS) return "memory";
    if (source.type == EFSSourceType::PACK) return "pack";
    if (source.type == EFSSourceType::DIR) return "directory";
    return source.path_name.empty() && source.file_name.empty() ? "fallback" : "root";
}

std::string place_of(const SFsSourceInfo& source) {
    const std::string place = source.path_name + source.file_name;
    return place.empty() ? "(the disk itself)" : place;
}

struct NoArguments {};

bool show_sources(const NoArguments&) {
    const std::vector<SFsSourceInfo> sources = all_sources();
    for (const SFsSourceInfo& source : sources)
        print(formatted("%-10s %-9s ", kind_of(source), source.writable ? "writable" : "read-only") + place_of(source) +
              (source.is_protected ? " (protected)" : "") + "\n");
    return true;
}

struct Ls {
    std::string dir;
    std::string mask;
    bool recursive = false;
    bool long_form = false;
    bool json = false;
};

std::vector<std::string> subdirectories(const std::string& dir) {
    std::set<std::string> names;
    const fs::idir* const node = fs::search_dir(dir.c_str());
    for (const fs::idir* child = node != nullptr ? node->first_child() : nullptr; child != nullptr;
         child = child->next_sibling())
        names.insert((dir.empty() ? "" : dir + "/") + child->name());
    return {names.begin(), names.end()};
}

/// The size in bytes, or `failed` where it is not known.
std::uint64_t size_of(const std::string& name) { return fs::length(fs::open_file(name.c_str(), EFSMode::READ).get()); }

void print_listing(const Ls& options, const std::vector<std::string>& dirs, const std::vector<std::string>& files) {
    for (const std::string& dir : dirs) print((options.long_form ? std::string(35, ' ') : "") + dir + "/\n");
    for (const std::string& file : files) {
        const std::uint64_t size = options.long_form ? size_of(file) : failed;
        const std::string time = options.long_form ? time_of(file) : "";
        const std::string size_text = size != failed ? std::to_string(size) : "-";
        const std::string columns = formatted("%12s  %-19s  ", size_text.c_str(), time.empty() ? "-" : time.c_str());
        print((options.long_form ? columns : "") + file + "\n");
    }
}

Json json_of(const std::string& file, bool long_form) {
    Json item{{"name", file}, {"kind", "file"}};
    if (!long_form) return item;
    const std::uint64_t size = size_of(file);
    const std::string time = time_of(file);
    item.update({{"size", size != failed ? Json(size) : Json()}, {"time", time.empty() ? Json() : Json(time)}});
    return item;
}

bool print_json_listing(const Ls& options, const std::vector<std::string>& dirs,
                        const std::vector<std::string>& files) {
    Json all = Json::array();
    for (const std::string& dir : dirs) all.push_back({{"name", dir}, {"kind", "directory"}});
    for (const std::string& file : files) all.push_back(json_of(file, options.long_form));
    return print_json(all);
}

bool list(const Ls& options) {
    std::string dir = normalised(options.dir == "." || options.dir == "/" ? "" : options.dir);
    if (dir.ends_with('/')) dir.pop_back();
    const std::vector<std::string> files = list_files(dir.c_str(), options.mask.c_str(), options.recursive);
    std::vector<std::string> dirs;
    if (!options.recursive && options.mask.empty()) dirs = subdirectories(dir);
    if (files.empty() && dirs.empty() && fs::search_dir(dir.c_str()) == nullptr && !dir.empty())
        return fail(options.dir, "no source has such a directory");
    if (files.empty() && !options.mask.empty()) return fail(options.mask, "no file matches");
    if (options.json) return print_json_listing(options, dirs, files);
    print_listing(options, dirs, files);
    return true;
}

bool find(const Name& given) {
    const std::string wanted = lower_case(given.name);
    bool found = false;
    for (const std::string& name : list_files()) {
        if (name.find(wanted) == std::string::npos) continue;
        print(name + "\n");
        found = true;
    }
    return found || fail(given.name, "no name contains it");
}

struct Which {
    std::string name;
    bool all = false;
};

bool which(const Which& given) {
    const std::vector<SFsSourceInfo> holders = holders_of(given.name);
    if (holders.empty()) return fail_not_held(given.name);
    print(place_of(holders[0]) + "\n");
    for (std::size_t i = 1; given.all && i < holders.size(); ++i) print(place_of(holders[i]) + " (shadowed)\n");
    return true;
}

bool show_file(const Name& given) {
    const std::string& name = given.name;
    const std::vector<SFsSourceInfo> holders = holders_of(name);
    if (holders.empty()) return fail_not_held(name);
    const fs::file_ptr file = open_file(name);
    if (file == nullptr) return false;
    const auto show = [](const char* what, const std::string& text) { print(formatted("%-11s", what) + text + "\n"); };
    const auto path = [&](auto which_path) { return ask(name, [&] { return which_path(name.c_str()); }); };
    const auto yes_no = [&](auto is_so) { return ask(name, [&] { return is_so(name.c_str()); }) ? "yes" : "no"; };
    const std::uint64_t size = fs::length(file.get());
    const std::string time = time_of(name);
    const std::string place = place_on_disk(name);
    show("name", path(fs::root_path));
    show("source", place_of(holders[0]) + " (" + kind_of(holders[0]) + ")");
    show("full path", place.empty() ? std::string(path(fs::full_path)) : place);
    show("size", size != failed ? std::to_string(size) : "unknown");
    show("written", time.empty() ? "unknown" : time + " UTC");
    show("read-only", yes_no(fs::read_only));
    show("protected", yes_no(fs::is_protected));
    show("shadows", std::to_string(holders.size() - 1));
    return true;
}

}  // namespace

void add_listing_commands(Commands& commands) {
    commands.add("sources", "Show the sources in the order in which they are asked", show_sources);

    const auto ls = commands.add("ls", "List the files and directories of a directory, all sources merged", list);
    ls->add_option("DIR", ls.given.dir, "Directory (default: the root)");
    ls->add_option("--mask", ls.given.mask, "Only file names that match, with * and ?")->type_name("P");
    ls->add_flag("-r,--recursive", ls.given.recursive, "Everything below the directory");
    ls->add_flag("--long", ls.given.long_form, "Size of each file, and time in UTC");
    ls->add_flag("--json", ls.given.json, "As a JSON array of objects (with --long: size in bytes, time)");

    commands.add("find", "Find the names that contain a text", "TEXT", find);
    commands.add("stat", "Show what is known of a file", "NAME", show_file);

    const auto which_command = commands.add("which", "Show the source that a name is read from", which);
    which_command->add_option("NAME", which_command.given.name)->required();
    which_command->add_flag("--all", which_command.given.all,
                            "Every source that holds the name, in asking order; those that lose are marked");
}

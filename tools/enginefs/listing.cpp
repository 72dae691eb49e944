// sources, ls, find, stat, which: what is there, and who wins.

#include <optional>
#include <set>

#include <nlohmann/json.hpp>

#include <engine/filesystem.h>

#include "commands.h"
#include "names.h"
#include "report.h"

namespace {

using Json = nlohmann::ordered_json;

const char* type_name(EFSSourceType::TYPE type) {
    switch (type) {
        case EFSSourceType::PLS:
            return "memory";
        case EFSSourceType::PACK:
            return "pack";
        case EFSSourceType::SPECIAL:
            return "root";
        case EFSSourceType::DIR:
            return "directory";
    }
    return "other";
}

bool is_fallback(const SFsSourceInfo& source) {
    return source.type == EFSSourceType::SPECIAL && source.path_name.empty() && source.file_name.empty();
}

std::string place_of(const SFsSourceInfo& source) {
    return is_fallback(source) ? "(the disk itself)" : source.path_name + source.file_name;
}

std::string kind_of(const SFsSourceInfo& source) { return is_fallback(source) ? "fallback" : type_name(source.type); }

struct NoArguments {};

bool show_sources(const NoArguments&) {
    const std::vector<SFsSourceInfo> sources = all_sources();
    for (const SFsSourceInfo& source : sources)
        print(formatted("%-10s %-9s ", kind_of(source).c_str(), source.writable ? "writable" : "read-only") +
              place_of(source) + (source.is_protected ? " (protected)" : "") + "\n");
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
    const std::string prefix = dir.empty() ? "" : dir + "/";
    const fs::idir* const node = fs::search_dir(dir.c_str());
    for (const fs::idir* child = node != nullptr ? node->first_child() : nullptr; child != nullptr;
         child = child->next_sibling())
        names.insert(prefix + child->name());
    return {names.begin(), names.end()};
}

/// The size in bytes; nothing where it is not known.
std::optional<std::uint64_t> size_of(const std::string& name) {
    const fs::file_ptr file(fs::open(name.c_str(), EFSMode::READ));
    const std::uint64_t size = fs::length(file.get());
    return size == failed ? std::nullopt : std::optional(size);
}

std::string long_line(const std::string& name) {
    const std::optional<std::uint64_t> size = size_of(name);
    const std::string time = time_of(name);
    return formatted("%12s  %-19s  ", size ? std::to_string(*size).c_str() : "-", time.empty() ? "-" : time.c_str()) +
           name + "\n";
}

Json json_entry(const std::string& name, bool long_form) {
    Json entry{{"name", name}, {"kind", "file"}};
    if (!long_form) return entry;
    const std::optional<std::uint64_t> size = size_of(name);
    const std::string time = time_of(name);
    entry["size"] = size ? Json(*size) : Json(nullptr);
    entry["time"] = time.empty() ? Json(nullptr) : Json(time);
    return entry;
}

void print_listing(const Ls& options, const std::vector<std::string>& dirs, const std::vector<std::string>& files) {
    for (const std::string& dir : dirs) print((options.long_form ? std::string(35, ' ') : "") + dir + "/\n");
    for (const std::string& file : files) print(options.long_form ? long_line(file) : file + "\n");
}

void print_json(const Ls& options, const std::vector<std::string>& dirs, const std::vector<std::string>& files) {
    Json all = Json::array();
    for (const std::string& dir : dirs) all.push_back({{"name", dir}, {"kind", "directory"}});
    for (const std::string& file : files) all.push_back(json_entry(file, options.long_form));
    // Names are bytes; what is no UTF-8 is shown with replacement characters instead of ending the listing.
    print(all.dump(2, ' ', false, Json::error_handler_t::replace) + "\n");
}

bool list(const Ls& options) {
    const std::string dir = normalised(options.dir == "." || options.dir == "/" ? "" : options.dir);
    const std::string clean = !dir.empty() && dir.back() == '/' ? dir.substr(0, dir.size() - 1) : dir;
    const std::vector<std::string> files = list_files(clean, options.mask, options.recursive);
    std::vector<std::string> dirs;
    if (!options.recursive && options.mask.empty()) dirs = subdirectories(clean);
    if (files.empty() && dirs.empty() && fs::search_dir(clean.c_str()) == nullptr && !clean.empty())
        return fail(options.dir, "no source has such a directory");
    if (files.empty() && !options.mask.empty()) return fail(options.mask, "no file matches");
    options.json ? print_json(options, dirs, files) : print_listing(options, dirs, files);
    return true;
}

bool find(const Name& given) {
    const std::string wanted = lower_case(given.name);
    bool found = false;
    for (const std::string& name : list_everything()) {
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
    const std::uint64_t size = fs::length(file.get());
    const std::string time = time_of(name);
    const std::string place = place_on_disk(name);
    const auto path = [&](auto which_path) { return ask(name, [&] { return which_path(name.c_str()); }); };
    const auto yes_no = [&](auto is_so) -> std::string {
        return ask(name, [&] { return is_so(name.c_str()); }) ? "yes" : "no";
    };
    print("name       " + path(fs::root_path) + "\n");
    print("source     " + place_of(holders[0]) + " (" + kind_of(holders[0]) + ")\n");
    print("full path  " + (place.empty() ? path(fs::full_path) : place) + "\n");
    print("size       " + (size != failed ? std::to_string(size) : "unknown") + "\n");
    print("written    " + (time.empty() ? "unknown" : time + " UTC") + "\n");
    print("read-only  " + yes_no(fs::read_only) + "\n");
    print("protected  " + yes_no(fs::is_protected) + "\n");
    print("shadows    " + std::to_string(holders.size() - 1) + "\n");
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

// sources, ls, find, stat, which: what is there, and who wins.

#include <cinttypes>
#include <cstdio>
#include <set>

#include <CLI/CLI.hpp>
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

int show_sources() {
    ztl::vector<SFsSourceInfo> sources;
    fs::get_sources(sources);
    for (const SFsSourceInfo& source : sources) {
        char line[64];
        std::snprintf(line, sizeof line, "%-10s %-9s ", kind_of(source).c_str(),
                      source.writable ? "writable" : "read-only");
        print(line + place_of(source) + (source.is_protected ? " (protected)" : "") + "\n");
    }
    return exit_ok;
}

struct LsOptions {
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

std::string long_line(const std::string& name) {
    const FileFacts facts = facts_of(name);
    char columns[64];
    const std::string size = facts.size_known ? std::to_string(facts.size) : "-";
    std::snprintf(columns, sizeof columns, "%12s  %-19s  ", size.c_str(),
                  facts.time.empty() ? "-" : facts.time.c_str());
    return columns + name + "\n";
}

Json json_entry(const std::string& name, bool long_form) {
    Json entry{{"name", name}, {"kind", "file"}};
    if (!long_form) return entry;
    const FileFacts facts = facts_of(name);
    entry["size"] = facts.size_known ? Json(facts.size) : Json(nullptr);
    entry["time"] = facts.time.empty() ? Json(nullptr) : Json(facts.time);
    return entry;
}

void print_listing(const LsOptions& options, const std::vector<std::string>& dirs,
                   const std::vector<std::string>& files) {
    for (const std::string& dir : dirs) print((options.long_form ? std::string(35, ' ') : "") + dir + "/\n");
    for (const std::string& file : files) print(options.long_form ? long_line(file) : file + "\n");
}

void print_json(const LsOptions& options, const std::vector<std::string>& dirs, const std::vector<std::string>& files) {
    Json all = Json::array();
    for (const std::string& dir : dirs) all.push_back({{"name", dir}, {"kind", "directory"}});
    for (const std::string& file : files) all.push_back(json_entry(file, options.long_form));
    // Names are bytes; what is no UTF-8 is shown with replacement characters instead of ending the listing.
    print(all.dump(2, ' ', false, Json::error_handler_t::replace) + "\n");
}

int list(const LsOptions& options) {
    const std::string dir = normalised(options.dir == "." || options.dir == "/" ? "" : options.dir);
    const std::string clean = !dir.empty() && dir.back() == '/' ? dir.substr(0, dir.size() - 1) : dir;
    const std::vector<std::string> files = list_files(clean, options.mask, options.recursive);
    std::vector<std::string> dirs;
    if (!options.recursive && options.mask.empty()) dirs = subdirectories(clean);
    if (files.empty() && dirs.empty() && fs::search_dir(clean.c_str()) == nullptr && !clean.empty())
        return fail(options.dir, "no source has such a directory");
    if (files.empty() && !options.mask.empty()) return fail(options.mask, "no file matches");
    options.json ? print_json(options, dirs, files) : print_listing(options, dirs, files);
    return exit_ok;
}

int find(const std::string& text) {
    const std::string wanted = lower_case(text);
    bool found = false;
    for (const std::string& name : list_everything()) {
        if (name.find(wanted) == std::string::npos) continue;
        print(name + "\n");
        found = true;
    }
    return found ? exit_ok : fail(text, "no name contains it");
}

int fail_not_held(const std::string& name) {
    return fail(name, is_directory(name) ? "it is a directory" : "no source holds it");
}

int which(const std::string& name, bool all) {
    ztl::vector<SFsSourceInfo> holders;
    fs::find_holders(name.c_str(), holders);
    if (holders.empty()) return fail_not_held(name);
    print(place_of(holders[0]) + "\n");
    for (std::size_t i = 1; all && i < holders.size(); ++i) print(place_of(holders[i]) + " (shadowed)\n");
    return exit_ok;
}

int show_file(const std::string& name) {
    ztl::vector<SFsSourceInfo> holders;
    fs::find_holders(name.c_str(), holders);
    if (holders.empty()) return fail_not_held(name);
    const FileFacts facts = facts_of(name);
    if (!facts.found) return fail_with_last_error(name, "it cannot be opened");
    const auto yes_no = [](bool on) { return std::string(on ? "yes" : "no"); };
    print("name       " + fs::root_path(name.c_str()) + "\n");
    print("source     " + place_of(holders[0]) + " (" + kind_of(holders[0]) + ")\n");
    print("full path  " + fs::full_path(name.c_str()) + "\n");
    print("size       " + (facts.size_known ? std::to_string(facts.size) : "unknown") + "\n");
    print("written    " + (facts.time.empty() ? "unknown" : facts.time) + "\n");
    print("read-only  " + yes_no(fs::read_only(name.c_str())) + "\n");
    print("protected  " + yes_no(fs::is_protected(name.c_str())) + "\n");
    print("shadows    " + std::to_string(holders.size() - 1) + "\n");
    return exit_ok;
}

void add_ls(CLI::App& app, Command& chosen) {
    CLI::App* const ls = app.add_subcommand("ls", "List the files and directories of a directory, all sources merged");
    auto options = std::make_shared<LsOptions>();
    ls->add_option("DIR", options->dir, "Directory (default: the root)");
    ls->add_option("--mask", options->mask, "Only file names that match, with * and ?")->type_name("P");
    ls->add_flag("-r,--recursive", options->recursive, "Everything below the directory");
    ls->add_flag("--long", options->long_form, "Size and time of each file");
    ls->add_flag("--json", options->json, "As a JSON array of objects (with --long: size in bytes, time)");
    ls->callback([options, &chosen] { chosen.run = [options] { return list(*options); }; });
}

void add_which(CLI::App& app, Command& chosen) {
    CLI::App* const sub = app.add_subcommand("which", "Show the source that a name is read from");
    auto name = std::make_shared<std::string>();
    auto all = std::make_shared<bool>(false);
    sub->add_option("NAME", *name)->required();
    sub->add_flag("--all", *all, "Every source that holds the name, in asking order; those that lose are marked");
    sub->callback([name, all, &chosen] { chosen.run = [name, all] { return which(*name, *all); }; });
}

}  // namespace

void add_listing_commands(CLI::App& app, Command& chosen) {
    app.add_subcommand("sources", "Show the sources in the order in which they are asked")->callback([&chosen] {
        chosen.run = show_sources;
    });
    add_ls(app, chosen);
    add_name_command(app, chosen, "find", "Find the names that contain a text", "TEXT", find);
    add_name_command(app, chosen, "stat", "Show what is known of a file", "NAME", show_file);
    add_which(app, chosen);
}

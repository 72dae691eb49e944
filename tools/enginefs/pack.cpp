// pack: a directory as a pack.

#include <algorithm>
#include <unordered_map>

#include <engine/filesystem.h>

#include "commands.h"
#include "pack_check.h"
#include "pack_files.h"
#include "report.h"
#include "result.h"

namespace {

struct Pack {
    std::string out;
    std::string dir;
    std::string order;
    Globs globs{};
    Packing how{};
    bool strict = false;
    bool dry_run = false;
};

/// Puts the names of the order file first, in its order; the rest keep theirs.
bool apply_order(const std::string& path, std::vector<std::string>& names) {
    std::vector<std::string> lines;
    if (!read_lines(path, lines)) return false;
    std::unordered_map<std::string, std::size_t> places;
    for (const std::string& line : lines) places.emplace(normalised(line), places.size());
    const auto place = [&places](const std::string& name) {
        const auto found = places.find(name);
        return found != places.end() ? found->second : places.size();
    };
    std::stable_sort(names.begin(), names.end(),
                     [&](const std::string& a, const std::string& b) { return place(a) < place(b); });
    return true;
}

bool pack(const Pack& given) {
    Tree tree;
    if (!tree.open(given.dir)) return false;
    if (tree.is_pack()) return fail(given.dir, "it is no directory");
    std::vector<std::string> names = tree.names();
    std::erase_if(names, [&](const std::string& name) { return !given.globs.take(name); });
    leave_out_packs(names, given.dir, given.out, given.how);
    PackCheck check(tree, given.globs);
    check.look_for_unshown(given.dir);
    check.look_at(names, given.dir);
    if (check.errors() != 0 || (given.strict && check.findings() != 0))
        return fail(given.out,
                    "it is not made; see the " + counted(check.findings(), "finding", "findings") + " above");
    if (!tree.is_whole() || (!given.order.empty() && !apply_order(given.order, names))) return false;
    if (!given.dry_run) return write_packs(tree, names, check.total_bytes(), given.out, given.how);
    Listing listing;
    for (const std::string& name : names) listing.add({{"name", name}, {"size", tree.size_of(name), 12}});
    listing.note(counted(names.size(), "file", "files") + ", " + std::to_string(check.total_bytes()) + " bytes");
    return listing.finish();
}

}  // namespace

void add_pack_commands(Commands& commands) {
    const auto added = commands.add("pack", "Make a pack of everything that a directory shows when it is mounted", pack,
                                    /*needs_mount*/ false);
    Pack& given = added.given;
    added->add_option("OUT", given.out, "The pack to make, or to replace once the new one is whole")->required();
    added->add_option("DIR", given.dir, "The directory")->required();
    add_packing_options(added.app, given.how);
    added
        ->add_option("--include", given.globs.include,
                     "Only what matches, or lies in a directory that does; repeatable")
        ->type_name("GLOB")
        ->expected(1)
        ->take_all();
    added->add_option("--exclude", given.globs.exclude, "Nothing of what matches, which nobody is told of; repeatable")
        ->type_name("GLOB")
        ->expected(1)
        ->take_all();
    added
        ->add_option("--order", given.order,
                     "Lay the names of this list out first, in its order (see fs::record_access)")
        ->type_name("FILE");
    added->add_flag("--strict", given.strict, "Make nothing where something in the directory would be missing");
    CLI::Option* const dry_run =
        added->add_flag("-n,--dry-run", given.dry_run, "Say what would go in, and what would not, and make nothing");
    commands.add_json(added)->needs(dry_run);
}

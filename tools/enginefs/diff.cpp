// diff, patch: what tells two trees apart.

#include <algorithm>

#include <engine/filesystem.h>

#include "commands.h"
#include "pack_check.h"
#include "pack_files.h"
#include "report.h"
#include "result.h"
#include "terminal.h"

namespace {

struct Patch {
    std::string from, to, out;
    Packing how{};
};

enum class Kind { ADDED, REMOVED, CHANGED };
constexpr const char* kind_names[] = {"added", "removed", "changed"};

struct Change {
    Kind kind;
    std::string name;
    std::uint64_t old_size, new_size;  // `failed` where there is none
};

/// The changes from one tree to the other, by names.
class Comparison {
public:
    bool run(const std::string& from, const std::string& to) {
        if (!old_.open(from) || !new_.open(to) || !old_.is_whole() || !new_.is_whole()) return false;
        std::vector<std::string> all;
        std::ranges::set_union(old_.names(), new_.names(), std::back_inserter(all));
        Progress progress("compare " + from + " and " + to, all.size(), false);
        for (const std::string& name : all) {
            if (!compare(name)) return false;
            progress.add(1);
        }
        return true;
    }

    const Tree& new_tree() const { return new_; }
    const std::vector<Change>& changes() const { return changes_; }
    std::size_t count(Kind kind) const {
        return static_cast<std::size_t>(std::ranges::count(changes_, kind, &Change::kind));
    }

private:
    bool compare(const std::string& name) {
        const bool was = old_.holds(name), is = new_.holds(name);
        const std::uint64_t old_size = was ? old_.size_of(name) : failed, new_size = is ? new_.size_of(name) : failed;
        if ((was && old_size == failed) || (is && new_size == failed))
            return fail_with_last_error(name, "it cannot be read");
        std::uint32_t old_crc = 0, new_crc = 0;
        if (was && is && old_size == new_size) {
            if (!old_.crc_of(name, old_crc) || !new_.crc_of(name, new_crc)) return false;
            if (old_crc == new_crc) return true;
        }
        const Kind kind = !was ? Kind::ADDED : is ? Kind::CHANGED : Kind::REMOVED;
        changes_.push_back({kind, name, old_size, new_size});
        return true;
    }

    Tree old_, new_;
    std::vector<Change> changes_;
};

bool diff(const FromTo& given) {
    Comparison all;
    if (!all.run(given.from, given.to)) return false;
    Listing listing;
    for (const Change& change : all.changes()) {
        listing.add({{"name", change.name},
                     {"change", kind_names[static_cast<int>(change.kind)], -7},
                     {"old_size", json_or_null(change.old_size), 12},
                     {"new_size", json_or_null(change.new_size), 12}});
    }
    listing.note(std::to_string(all.count(Kind::ADDED)) + " added, " + std::to_string(all.count(Kind::REMOVED)) +
                 " removed, " + std::to_string(all.count(Kind::CHANGED)) + " changed");
    return listing.finish();
}

bool patch(const Patch& given) {
    Comparison all;
    if (!all.run(given.from, given.to)) return false;
    std::vector<std::string> names;
    for (const Change& change : all.changes())
        if (change.kind != Kind::REMOVED) names.push_back(change.name);
    leave_out_packs(names, given.to, given.out, given.how);
    const Globs everything;
    PackCheck check(all.new_tree(), everything);
    check.look_at(names, given.to);
    if (check.errors() != 0) return false;
    for (const Change& change : all.changes())
        if (change.kind == Kind::REMOVED)
            note(change.name,
                 given.from + " shows it still, though " + given.to + " lacks it: packs cannot hide names");
    return write_packs(all.new_tree(), names, check.total_bytes(), given.out, given.how);
}

}  // namespace

void add_diff_commands(Commands& commands) {
    const auto diff_command = commands.add(
        "diff", "Show what was added, removed and changed between two packs, or directories, with the sizes of both",
        diff,
        /*needs_mount*/ false);
    diff_command->add_option("OLD", diff_command.given.from, "A pack or a directory")->required();
    diff_command->add_option("NEW", diff_command.given.to, "A pack or a directory")->required();
    commands.add_forms(diff_command, "The names");

    const auto patch_command = commands.add(
        "patch", "Make a pack of what was added and changed: mounted before OLD it shows what NEW shows", patch,
        /*needs_mount*/ false);
    patch_command->add_option("OLD", patch_command.given.from, "A pack or a directory")->required();
    patch_command->add_option("NEW", patch_command.given.to, "A pack or a directory")->required();
    patch_command->add_option("OUT", patch_command.given.out, "The pack to make")->required();
    add_packing_options(patch_command.app, patch_command.given.how);
}

#include <algorithm>
#include <iterator>

#include <engine/filesystem/sources/directory.h>

#include "engine/filesystem/contract/native_path.h"
#include "engine/filesystem/contract/normalize.h"
#include "engine/filesystem/contract/set_error.h"
#include "engine/filesystem/sources/directory/follow/follower.h"

// Under the registry's exclusive lock the table is brought to what was found. Each name is told, entered and unmarked in
// one go, so that where memory ends the table, the marks and what was told agree.

namespace fs {

void DirectoryFollower::apply(ChangeBatch& batch) {
    if (is_to_be_mounted_) mount_again(batch);
    apply_directories(batch);
    for (auto at = marks_.begin(); at != marks_.end();) {
        Mark& mark = at->second;
        const bool is_done = mark.is_due && apply_mark(batch, at->first, mark);
        mark.is_named |= mark.is_due;
        at = is_done ? marks_.erase(at) : std::next(at);
    }
    due_ = 0;
    if (is_lost_) batch.add(SFsChange::LOST, "");
    is_lost_ = false;
    state_.names->table.compact();
}

/// The root went or came.
void DirectoryFollower::mount_again(ChangeBatch& batch) {
    ErrorScope scope;
    source_.refresh();  // which fails for a root that must exist, and keeps the names
    scope.forget();
    batch.tree_changed();
    reads_ = state_.reads;
    is_to_be_mounted_ = false;
    is_lost_ = true;
    if (!is_root_gone_) is_to_be_read_ = true;  // so that all of it is watched
}

void DirectoryFollower::apply_directories(ChangeBatch& batch) {
    if (new_dirs_.empty() && gone_dirs_.empty()) return;
    batch.tree_changed();
    MountedNames& names = *state_.names;
    for (const std::string& dir : gone_dirs_) {
        if (dir != lower_text(start_)) state_.remove_node(dir);
    }
    // The disk may have a directory of the same name in another case.
    const auto is_below_gone = [&](const std::string& dir) {
        return std::any_of(gone_dirs_.begin(), gone_dirs_.end(),
                           [&](const std::string& gone) { return dir.starts_with(gone); });
    };
    if (!gone_dirs_.empty()) {
        for (const auto& [dir, watch] : directories_) {
            const std::string lower = lower_text(dir);
            if (is_below_gone(lower)) state_.make_node(names, lower);
        }
    }
    for (const std::string& dir : new_dirs_) {
        if (!directories_.contains(dir)) continue;  // it went again
        state_.make_node(names, lower_text(dir));
        names.unlisted.erase(lower_text(dir));
    }
    new_dirs_.clear();
    gone_dirs_.clear();
}

/// False when the disk is to be asked first.
bool DirectoryFollower::apply_mark(ChangeBatch& batch, const std::string& name, const Mark& mark) {
    const std::vector<std::uint32_t> held = held_files(name);
    if (!mark.is_named) {
        const bool is_held =
            std::any_of(held.begin(), held.end(), [&](std::uint32_t file) { return is_named(mark, file); });
        if (is_held) batch.add(SFsChange::CONTENT, name).winner_changed = batch.is_winner(name);
        return is_held;
    }
    const std::vector<std::string> wanted = wanted_spellings(held, mark);
    if (wanted.empty() && held.empty()) return true;
    if (wanted.empty()) {
        batch.add(SFsChange::REMOVED, name).winner_changed = batch.is_winner(name);
        for (const std::uint32_t file : held) state_.names->table.remove(file);
        return true;
    }
    const bool is_same =
        std::equal(held.begin(), held.end(), wanted.begin(), wanted.end(),
                   [&](std::uint32_t file, const std::string& path) { return is_spelled(file, path); });
    if (is_same && !mark.is_written) return true;
    const bool is_created = held.empty() || (is_same && mark.is_new);
    SFsChange& change = batch.add(is_created ? SFsChange::CREATED : SFsChange::CONTENT, name);
    bool is_shown = true;
    try {
        if (!is_same) is_shown = replace(held, wanted);
    } catch (...) {
        batch.take_back();
        throw;
    }
    if (is_shown)
        change.winner_changed = batch.is_winner(name);
    else
        batch.take_back();
    return true;
}

/// The files of the table that have this name, in their order; they differ in case.
std::vector<std::uint32_t> DirectoryFollower::held_files(std::string_view name) const {
    const NameTable& table = state_.names->table;
    const std::size_t split = name.rfind('/') + 1;
    std::vector<std::uint32_t> held;
    std::uint32_t file = table.find_exact(name.substr(0, split), name.substr(split));
    for (; file != NameTable::none; file = table.next_exact(file)) held.push_back(file);
    return held;
}

bool DirectoryFollower::is_spelled(std::uint32_t file, std::string_view path) const {
    const NameTable& table = state_.names->table;
    return path.ends_with(table.spelled_name(file)) &&
           path.substr(0, path.size() - table.spelled_name(file).size()) == table.spelled_dir(file);
}

/// Whether something was told of just this file.
bool DirectoryFollower::is_named(const Mark& mark, std::uint32_t file) const {
    return std::any_of(mark.spellings.begin(), mark.spellings.end(),
                       [&](const Spelling& spelling) { return is_spelled(file, spelling.path); });
}

/// The spellings that the table is to have, in the order of a scan: what is there, and of what it has already what nobody
/// touched.
std::vector<std::string> DirectoryFollower::wanted_spellings(const std::vector<std::uint32_t>& held,
                                                             const Mark& mark) const {
    const NameTable& table = state_.names->table;
    std::vector<std::string> wanted;
    for (const std::uint32_t file : held) {
        if (!is_named(mark, file))
            wanted.push_back(std::string(table.spelled_dir(file)).append(table.spelled_name(file)));
    }
    for (const Spelling& spelling : mark.spellings) {
        if (spelling.is_there) wanted.push_back(spelling.path);
    }
    std::sort(wanted.begin(), wanted.end());
    return wanted;
}

/// Puts these spellings of one name in the place of the files that the table has. False when the source shows none of them.
bool DirectoryFollower::replace(const std::vector<std::uint32_t>& held, const std::vector<std::string>& wanted) {
    NameTable& table = state_.names->table;
    std::vector<std::uint32_t> added;
    added.reserve(wanted.size());
    try {
        for (const std::string_view path : wanted) {
            const std::size_t split = path.rfind('/') + 1;
            const std::uint32_t dir = table.intern_dir(path.substr(0, split));
            const std::uint32_t file = state_.enter(*state_.names, dir, path.substr(split));
            if (file != NameTable::none) added.push_back(file);
        }
    } catch (...) {
        for (const std::uint32_t file : added) table.remove(file);
        throw;
    }
    for (const std::uint32_t file : added) {
        if (!held.empty()) table.set_value(file, table.value(held.front()));
    }
    for (const std::uint32_t file : held) table.remove(file);
    return !added.empty();
}

}  // namespace fs

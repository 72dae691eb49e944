#include <algorithm>
#include <iterator>

#include <engine/filesystem/sources/directory.h>

#include "engine/filesystem/contract/native_path.h"
#include "engine/filesystem/contract/normalize.h"
#include "engine/filesystem/registry/registry.h"
#include "engine/filesystem/sources/directory/follow/follower.h"

// Under the registry's exclusive lock the table is brought to what was found. Each name is told, entered and unmarked in
// one go, so that where memory ends the table, the marks and what was told agree.

namespace fs {

void DirectoryFollower::apply(ChangeBatch& batch) {
    if (is_to_be_mounted_) mount_again(batch);
    apply_directories(batch);
    for (auto at = marks_.begin(); at != marks_.end();) {
        if (at->second.is_due) apply_mark(batch, at->first, at->second);
        at = at->second.is_due ? marks_.erase(at) : std::next(at);
    }
    due_ = 0;
    if (is_lost_) batch.add(SFsChange::LOST, "");
    is_lost_ = false;
    state_.names->table.compact();
}

/// The root went or came.
void DirectoryFollower::mount_again(ChangeBatch& batch) {
    source_.refresh();
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
        state_.make_node(names, dir);
        names.unlisted.erase(dir);
    }
    new_dirs_.clear();
    gone_dirs_.clear();
}

void DirectoryFollower::apply_mark(ChangeBatch& batch, const std::string& name, const Mark& mark) {
    NameTable& table = state_.names->table;
    const std::size_t split = name.rfind('/') + 1;
    const std::string_view dir = std::string_view(name).substr(0, split);
    std::vector<std::uint32_t> held;
    for (std::uint32_t file = table.find_exact(dir, std::string_view(name).substr(split)); file != NameTable::none;
         file = table.next_of_name(file)) {
        if (table.dir(file) == dir) held.push_back(file);
    }
    std::vector<std::string> held_paths;
    for (const std::uint32_t file : held)
        held_paths.push_back(std::string(table.spelled_dir(file)).append(table.spelled_name(file)));

    // What nobody named is there still.
    std::vector<std::string_view> wanted;
    for (const std::string& path : held_paths) {
        const bool is_named = std::any_of(mark.spellings.begin(), mark.spellings.end(),
                                          [&](const Spelling& spelling) { return spelling.path == path; });
        if (!is_named) wanted.emplace_back(path);
    }
    for (const Spelling& spelling : mark.spellings) {
        if (spelling.is_there) wanted.emplace_back(spelling.path);
    }
    std::sort(wanted.begin(), wanted.end());
    wanted.erase(std::unique(wanted.begin(), wanted.end()), wanted.end());

    if (wanted.empty()) {
        if (held.empty()) return;
        batch.add(SFsChange::REMOVED, name).winner_changed = batch.is_winner(name);
        for (const std::uint32_t file : held) table.remove(file);
        return;
    }
    const bool is_same = std::equal(wanted.begin(), wanted.end(), held_paths.begin(), held_paths.end());
    if (is_same && !mark.is_written) return;
    const bool is_created = held.empty() || (is_same && mark.is_new);
    SFsChange& change = batch.add(is_created ? SFsChange::CREATED : SFsChange::CONTENT, name);
    try {
        if (!is_same) replace(held, wanted);
    } catch (...) {
        batch.take_back();
        throw;
    }
    if (held.empty() && table.find_exact(dir, std::string_view(name).substr(split)) == NameTable::none)
        return batch.take_back();  // the source does not show it
    change.winner_changed = batch.is_winner(name);
}

/// Puts these spellings of one name in the place of the files that the table has.
void DirectoryFollower::replace(const std::vector<std::uint32_t>& held, const std::vector<std::string_view>& wanted) {
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
}

}  // namespace fs

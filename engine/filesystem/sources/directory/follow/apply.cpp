#include <algorithm>
#include <new>

#include <engine/filesystem/sources/directory.h>

#include "engine/filesystem/contract/native_path.h"
#include "engine/filesystem/contract/normalize.h"
#include "engine/filesystem/contract/set_error.h"
#include "engine/filesystem/sources/directory/follow/follower.h"
#include "engine/filesystem/sources/directory/mount/scan.h"
#include "engine/filesystem/watch/watching.h"

// Under the registry's exclusive lock the table is brought to what was found. Each name is told, entered and unmarked in
// one go, so that where memory ends the table, the marks and what was told agree.

namespace fs {

void DirectoryFollower::apply(ChangeBatch& batch) {
    if (is_to_be_mounted_) mount_again(batch);
    apply_directories(batch);
    const std::vector<Marks::iterator> due = std::move(due_);
    for (const Marks::iterator name : due) {
        const auto end = end_of_name(name);
        if (apply_name(batch, name, end))
            marks_.erase(name, end);
        else
            name->second.is_named = true;
    }
    if (is_lost_) batch.add_lost();
    is_lost_ = false;
    state_.names->table.compact();
}

/// The root went or came.
void DirectoryFollower::mount_again(ChangeBatch& batch) {
    batch.tree_changes();
    ErrorScope scope;
    source_.refresh();  // which fails for a root that must exist, and keeps the names
    if (scope.has_error() && last_error().code == EFSError::OUT_OF_MEMORY) throw std::bad_alloc();
    scope.forget();
    take_settings();
    is_to_be_mounted_ = false;
    is_lost_ = true;
    if (!is_root_gone_) is_to_be_read_ = true;  // so that all of it is watched
}

void DirectoryFollower::apply_directories(ChangeBatch& batch) {
    if (new_dirs_.empty() && gone_dirs_.empty()) return;
    batch.tree_changes();
    MountedNames& names = *state_.names;
    for (const std::string& dir : gone_dirs_) state_.remove_node(dir);
    // The disk may have a directory of the same name in another case.
    if (!gone_dirs_.empty()) {
        for (const auto& [dir, watch] : directories_) {
            const std::string lower = lower_text(dir);
            if (is_below_any(gone_dirs_, lower)) state_.make_node(names, lower);
        }
    }
    for (const std::string& dir : new_dirs_) {
        if (!directories_.contains(dir)) continue;  // it went again
        const std::string lower = lower_text(dir);
        state_.make_node(names, lower);
        names.unlisted.erase(lower);
    }
    new_dirs_.clear();
    gone_dirs_.clear();
}

/// False when the disk is to be asked first.
bool DirectoryFollower::apply_name(ChangeBatch& batch, Marks::iterator first, Marks::iterator last) {
    const NameTable& table = state_.names->table;
    const std::string name = lower_text(first->first);
    if (!first->second.is_named) {
        const bool is_held = std::any_of(first, last, [&](const auto& mark) { return holds(table, name, mark.first); });
        if (is_held) batch.add(SFsChange::CONTENT, name);
        return is_held;
    }
    std::vector<std::uint32_t> held;  // they differ in case
    std::vector<std::string> before;  // as the disk spells them
    std::vector<std::string> wanted;  // of these what nobody touched, and what is there
    for (std::uint32_t file = find_first(table, name); file != NameTable::none; file = table.next_exact(file)) {
        held.push_back(file);
        before.push_back(spelled_path(table, file));
        if (std::none_of(first, last, [&](const auto& mark) { return mark.first == before.back(); }))
            wanted.push_back(before.back());
    }
    for (auto at = first; at != last; ++at) {
        if (at->second.is_there) wanted.push_back(at->first);
    }
    std::sort(wanted.begin(), wanted.end());  // as a scan enters them
    if (wanted != before)
        replace(batch, name, held, wanted);
    else if (first->second.is_written && !held.empty())
        batch.add(first->second.is_new ? SFsChange::CREATED : SFsChange::CONTENT, name);
    return true;
}

/// Puts files of these paths in the place of those that the table has under the name.
void DirectoryFollower::replace(ChangeBatch& batch, const std::string& name, const std::vector<std::uint32_t>& held,
                                const std::vector<std::string>& paths) {
    NameTable& table = state_.names->table;
    std::vector<std::uint32_t> entered;
    entered.reserve(paths.size());
    try {
        for (const std::string_view path : paths) {
            const std::size_t split = path.rfind('/') + 1;
            const std::uint32_t dir = table.intern_dir(path.substr(0, split));
            const std::uint32_t file = state_.enter(*state_.names, dir, path.substr(split));
            if (file != NameTable::none) entered.push_back(file);
        }
        const bool is_there = !entered.empty();
        if (is_there || !held.empty())
            batch.add(!is_there ? SFsChange::REMOVED : held.empty() ? SFsChange::CREATED : SFsChange::CONTENT, name);
    } catch (...) {
        for (const std::uint32_t file : entered) table.remove(file);
        throw;
    }
    for (const std::uint32_t file : entered) {
        if (!held.empty()) table.set_value(file, table.value(held.front()));
    }
    for (const std::uint32_t file : held) table.remove(file);
}

/// The first of the files that have this name in lower case; the others differ from it in case.
std::uint32_t DirectoryFollower::find_first(const NameTable& table, std::string_view name) {
    const std::size_t split = name.rfind('/') + 1;
    return table.find_exact(name.substr(0, split), name.substr(split));
}

/// Whether one of them is spelled like this.
bool DirectoryFollower::holds(const NameTable& table, std::string_view name, std::string_view path) {
    std::uint32_t file = find_first(table, name);
    const std::size_t split = path.rfind('/') + 1;
    while (file != NameTable::none &&
           (table.spelled_dir(file) != path.substr(0, split) || table.spelled_name(file) != path.substr(split)))
        file = table.next_exact(file);
    return file != NameTable::none;
}

std::string DirectoryFollower::spelled_path(const NameTable& table, std::uint32_t file) {
    return std::string(table.spelled_dir(file)).append(table.spelled_name(file));
}

}  // namespace fs

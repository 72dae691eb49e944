#include <algorithm>
#include <new>

#include <engine/filesystem/sources/directory.h>

#include "engine/filesystem/contract/native_path.h"
#include "engine/filesystem/contract/normalize.h"
#include "engine/filesystem/contract/set_error.h"
#include "engine/filesystem/sources/directory/follow/follower.h"
#include "engine/filesystem/watch/change_batch.h"

// Under the registry's exclusive lock the table is brought to what was found. Each name is told, entered and unmarked in
// one go, so that where memory ends the table, the marks and what was told agree.

namespace fs {

void DirectoryFollower::apply(ChangeBatch& batch) {
    if (is_to_be_mounted_) mount_again(batch);
    apply_directories(batch);
    const std::vector<Marks::value_type*> due = std::move(due_);
    for (Marks::value_type* const entry : due) {
        auto& [name, mark] = *entry;
        if (apply_mark(batch, name, mark))
            marks_.erase(name);
        else
            mark.is_named = true;
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
    reads_ = state_.reads;
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
    const auto is_gone = [&](std::string_view dir) {
        while (!dir.empty() && !gone_dirs_.contains(dir)) dir = parent_directory(dir);
        return !dir.empty();
    };
    if (!gone_dirs_.empty()) {
        for (const auto& [dir, watch] : directories_) {
            const std::string lower = lower_text(dir);
            if (is_gone(lower)) state_.make_node(names, lower);
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
bool DirectoryFollower::apply_mark(ChangeBatch& batch, const std::string& name, const Mark& mark) {
    const std::vector<std::uint32_t> held = held_files(name);
    std::vector<std::string> before;  // as the disk spells them
    std::vector<std::string> wanted;  // of these what nobody touched, and what is there
    for (const std::uint32_t file : held) {
        before.push_back(spelled_path(file));
        const auto is_it = [&](const Spelling& spelling) { return spelling.path == before.back(); };
        if (std::none_of(mark.spellings.begin(), mark.spellings.end(), is_it)) wanted.push_back(before.back());
    }
    if (!mark.is_named) {
        const bool is_held = wanted.size() < held.size();
        if (is_held) batch.add(SFsChange::CONTENT, name);
        return is_held;
    }
    for (const Spelling& spelling : mark.spellings) {
        if (spelling.is_there) wanted.push_back(spelling.path);
    }
    std::sort(wanted.begin(), wanted.end());  // as a scan enters them
    if (wanted != before)
        replace(batch, name, held, wanted);
    else if (mark.is_written && !held.empty())
        batch.add(mark.is_new ? SFsChange::CREATED : SFsChange::CONTENT, name);
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

/// The files of the table that have this name, in their order; they differ in case.
std::vector<std::uint32_t> DirectoryFollower::held_files(std::string_view name) const {
    const NameTable& table = state_.names->table;
    const std::size_t split = name.rfind('/') + 1;
    std::vector<std::uint32_t> held;
    std::uint32_t file = table.find_exact(name.substr(0, split), name.substr(split));
    for (; file != NameTable::none; file = table.next_exact(file)) held.push_back(file);
    return held;
}

std::string DirectoryFollower::spelled_path(std::uint32_t file) const {
    const NameTable& table = state_.names->table;
    return std::string(table.spelled_dir(file)).append(table.spelled_name(file));
}

}  // namespace fs

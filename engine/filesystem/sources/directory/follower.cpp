#include "engine/filesystem/sources/directory/follower.h"

#include <algorithm>
#include <cstring>
#include <new>

#include <engine/filesystem/sources/directory.h>

#include "engine/filesystem/contract/failure.h"
#include "engine/filesystem/contract/path_text.h"
#include "engine/filesystem/registry/registry.h"
#include "engine/filesystem/sources/directory/scan.h"
#include "engine/kernel/text.h"

namespace fs {

bool DirectoryFollower::ByName::operator()(std::string_view a, std::string_view b) const {
    // Paths begin alike: eight bytes are passed over in one go.
    std::size_t at = 0;
    while (at + 8 <= std::min(a.size(), b.size()) && std::memcmp(a.data() + at, b.data() + at, 8) == 0) at += 8;
    for (; at < a.size() && at < b.size(); ++at) {
        const auto x = static_cast<unsigned char>(kernel::fold(a[at])),
                   y = static_cast<unsigned char>(kernel::fold(b[at]));
        if (x != y) return x < y;
    }
    return a.size() < b.size();
}

void DirectoryFollower::take_settings() {
    settings_.native_root = state_.native_root;
    settings_.start = state_.start;
    settings_.include = state_.include;
    settings_.reads = state_.reads;
    is_recursive_ = (state_.flags & FFSAddSourceFlags::RECURSIVE) != 0;
}

bool DirectoryFollower::begin(Watches& watches) {
    watches_ = &watches;
    std::vector<std::string> known;
    std::int64_t begun = 0;
    {
        const registry::SharedGuard guard;
        take_settings();
        begun = state_.names->begun - stamp_step;
        const std::string& start = settings_.start;
        known.push_back(start);
        // What the process made since is in a directory that has changed since.
        state_.names->table.for_each_dir([&](std::string_view dir) {
            const bool is_below = dir.size() > start.size() && dir.starts_with(start);
            if (is_recursive_ && is_below && !is_hidden(dir.substr(start.size()))) known.emplace_back(dir);
        });
    }
    for (const std::string& dir : known) {
        if (!watch_known(dir)) return false;
        platform::DirectoryTimes times;
        // Where nobody tells, it is read again.
        const bool is_told = platform::get_directory_times({.full = native(dir).c_str()}, times);
        if (!is_told || std::max(times.written, times.changed) >= begun) mark_directory(dir, Extent::NAMES);
    }
    return true;
}

/// Watches what was mounted. A directory that went meanwhile is marked, and one that may not be read has no names.
bool DirectoryFollower::watch_known(const std::string& dir) {
    ErrorScope scope;
    if (watch(dir)) return true;
    const platform::Failure failure = platform::last_error().failure;
    const bool is_start = dir == settings_.start;
    if (failure == platform::Failure::NOT_FOUND && !is_start) {
        mark_directory(dir, Extent::FILES);
    } else if (failure != platform::Failure::ACCESS_DENIED || is_start) {
        return false;
    }
    scope.forget();
    return true;
}

/// False, with the failure stored and in platform::last_error, when it is not watched. It is known all the same.
bool DirectoryFollower::watch(const std::string& dir) {
    const auto place = directories_.try_emplace(dir).first;
    const bool is_start = dir == settings_.start;
    if (platform::Watcher::sees_below && (!is_start || place->second != nullptr)) return true;
    Watches::Watch watch = watches_->add(native(dir).c_str(), is_start, *this, place->first);
    if (watch == nullptr) return false;
    place->second = std::move(watch);
    return true;
}

void DirectoryFollower::note(const std::string& dir, const platform::WatchEvent& event, std::int64_t now) noexcept {
    try {
        note_event(dir, event, now);
    } catch (...) {  // no memory for the mark: as if the system had dropped the event
        is_to_be_read_ = true;
    }
}

void DirectoryFollower::note_event(const std::string& dir, const platform::WatchEvent& event, std::int64_t now) {
    if (event.kind == Kind::DROPPED) {
        is_to_be_read_ = true;
        return;
    }
    if (event.kind == Kind::GONE) {
        if (dir == settings_.start)
            is_root_gone_ = true;
        else
            mark_directory(dir, Extent::FILES);
        return;
    }
    const bool is_below = event.name.find('/') != std::string_view::npos;
    if (is_hidden(event.name) || (is_below && !is_recursive_)) return;
    std::string path;
    path.reserve(dir.size() + event.name.size());
    path.append(dir).append(event.name);
    std::string_view above = parent_directory(path);
    if (is_below && !directories_.contains(above)) {  // a new one, or one that the disk spells in another way
        while (above != settings_.start && !directories_.contains(above)) above = parent_directory(above);
        return mark_directory(std::string(above), Extent::NAMES);
    }
    const bool is_replaced = event.kind == Kind::REMOVED || event.kind == Kind::ARRIVED;  // a link to one, too
    const bool is_known_directory = is_replaced && directories_.contains(path + "/");
    if ((event.is_directory || is_known_directory) && is_recursive_)
        mark_directory(path + "/", event.kind == Kind::RIGHTS ? Extent::NAMES : Extent::FILES);
    if (!event.is_directory) mark(std::move(path), event.kind, now);
}

/// Marks a name as one of which the system would tell this.
void DirectoryFollower::mark(std::string path, Kind kind, std::int64_t when) {
    auto [first, last] = marks_.equal_range(path);
    const bool is_added = first == last;
    if (std::none_of(first, last, [&](const auto& mark) { return mark.first == path; })) {
        const auto added = marks_.emplace_hint(last, std::move(path), Mark{.touches = {.first = when, .last = when}});
        if (is_added) first = added;
    }
    Mark& name = first->second;
    name.touches.last = std::max(name.touches.last, when);
    name.is_written |= kind != Kind::REMOVED;
    name.is_named |= kind != Kind::CHANGED;
    name.is_new |= is_added && kind == Kind::CREATED;
}

void DirectoryFollower::mark_directory(std::string dir, Extent extent) {
    Extent& marked = directory_marks_.try_emplace(std::move(dir), extent).first->second;
    marked = std::max(marked, extent);
}

bool DirectoryFollower::prepare(std::int64_t now, std::int64_t quiet) {
    due_.clear();
    {
        const registry::SharedGuard guard;
        is_lost_ |= settings_.reads != state_.reads;
        if (is_lost_) take_settings();
    }
    if (is_root_gone_) {
        find_root();
        return true;
    }
    const auto look = [&] {
        const bool is_read = read_directories(now);
        return look_at_due(now, quiet) && is_read;
    };
    const bool is_whole = look();
    // Links, and what the system did not tell to be one, may have turned out to be directories.
    return is_whole && !directory_marks_.empty() ? look() : is_whole;
}

/// A root that went, and one that came, are mounted anew.
void DirectoryFollower::find_root() {
    const bool was_there = !directories_.empty();
    directories_.clear();
    ErrorScope scope;
    is_root_gone_ = !watch(settings_.start);
    scope.forget();
    if (is_root_gone_) directories_.clear();
    if (is_root_gone_ && !was_there) return;
    is_to_be_mounted_ = true;
    marks_.clear();
    directory_marks_.clear();
}

DirectoryFollower::Marks::iterator DirectoryFollower::end_of_name(Marks::iterator mark) {
    const std::string& name = mark->first;
    while (++mark != marks_.end() && kernel::equal_folded(mark->first, name)) {
    }
    return mark;
}

bool DirectoryFollower::look_at_due(std::int64_t now, std::int64_t quiet) {
    bool is_whole = true;
    due_.clear();
    for (auto at = marks_.begin(), next = at; at != marks_.end(); at = next) {
        next = end_of_name(at);
        if (!at->second.touches.are_over(now, quiet)) continue;
        // A spelling that is found meanwhile stands before the next name.
        const bool is_seen = !at->second.is_named || std::all_of(at, next, [&](auto& mark) { return look_at(mark); });
        if (is_seen) due_.push_back(at);
        is_whole &= is_seen;
    }
    return is_whole;
}

/// False, with the failure stored, when the disk does not tell.
bool DirectoryFollower::look_at(Marks::value_type& marked) {
    auto& [path, mark] = marked;
    const std::string full = native(path);
    platform::DirectoryItem item;
    char name[platform::path_buffer_size];
    const bool is_there = platform::look_at(full.c_str(), item, name);
    if (!is_there && !is_absent(platform::last_error().failure))
        return refuse_by_disk(full.c_str(), "cannot be looked at");
    if (is_there && item.is_directory && is_recursive_ && !directories_.contains(path + "/"))
        mark_directory(path + "/", Extent::NAMES);
    // A disk that knows no case finds a name by each spelling: it tells that of the name, and those of directories are
    // known.
    const std::string dir = path.substr(0, path.rfind('/') + 1);
    const bool is_file = is_there && !item.is_directory && !item.is_offline;
    const bool is_spelled = is_there && path.ends_with(name);
    mark.is_there = is_file && is_spelled && directories_.contains(dir);
    if (is_file && !is_spelled) this->mark(dir + name, Kind::REMOVED, mark.touches.last);
    return true;
}

/// Under the registry's exclusive lock. Each name is told, entered and unmarked in one go, so that where memory ends the
/// table, the marks and what was told agree.
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
            if (is_below_any(gone_dirs_, lower)) state_.make_node(names.tree, lower);
        }
    }
    for (const std::string& dir : new_dirs_) {
        if (!directories_.contains(dir)) continue;  // it went again
        const std::string lower = lower_text(dir);
        state_.make_node(names.tree, lower);
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
        const auto is_spelled = [&](const auto& mark) { return table.holds_spelled(name, mark.first); };
        const bool is_held = std::any_of(first, last, is_spelled);
        if (is_held) batch.add(SFsChange::CONTENT, name);
        return is_held;
    }
    std::vector<std::uint32_t> held;  // they differ in case
    std::vector<std::string> before;  // as the disk spells them
    std::vector<std::string> wanted;  // of these what nobody touched, and what is there
    for (std::uint32_t file = table.find_exact(name); file != NameTable::none; file = table.next_exact(file)) {
        held.push_back(file);
        before.push_back(table.spelled_path(file));
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

}  // namespace fs

#include "engine/filesystem/sources/directory/follow/follower.h"

#include <algorithm>
#include <unordered_set>

#include <engine/filesystem/sources/directory.h>

#include "engine/filesystem/contract/native_path.h"
#include "engine/filesystem/contract/normalize.h"
#include "engine/filesystem/contract/set_error.h"
#include "engine/filesystem/registry/registry.h"
#include "engine/filesystem/watch/watches.h"

namespace fs {

namespace {

// What was changed so shortly before the mount that its time stamp may be older than the reading of it.
constexpr std::int64_t stamp_step = 2 * platform::ticks_per_second;

bool is_hidden(std::string_view name) { return name.starts_with('#') || name.find("/#") != std::string_view::npos; }

/// The lower-case directories below a node, which stands for `dir`.
void collect_tree(const idir& top, const std::string& dir, std::vector<std::string>& out) {
    std::vector<std::pair<const idir*, std::string>> pending = {{&top, dir}};
    while (!pending.empty()) {
        auto [node, path] = std::move(pending.back());
        pending.pop_back();
        for (const idir* child = node->first_child(); child != nullptr; child = child->next_sibling()) {
            pending.emplace_back(child, path + child->name() + "/");
        }
        out.push_back(std::move(path));
    }
}

/// The directories of a source as the disk spells them. Under the registry's lock.
std::vector<std::string> known_directories(const DirectoryState& state) {
    std::vector<std::string> lower;
    collect_tree(state.names->tree, lower_text(state.start), lower);
    const std::unordered_set<std::string_view> in_tree(lower.begin(), lower.end());
    std::unordered_set<std::string_view> spelled;
    std::vector<std::string> found;
    state.names->table.for_each_dir([&](std::string_view dir, std::string_view spelling) {
        const auto known = in_tree.find(dir);
        if (known == in_tree.end()) return;
        spelled.insert(*known);
        found.emplace_back(spelling);
    });
    // An empty directory may be known to the tree alone.
    for (const std::string& dir : lower) {
        NativePath path;
        if (spelled.contains(dir) || !build_native_path(state.native_root, dir, {}, path)) continue;
        const bool is_told = platform::resolve_case(path.text, path.text);
        found.emplace_back(is_told ? path.below_root() : std::string_view(dir));
    }
    return found;
}

}  // namespace

void DirectoryFollower::take_settings() {
    root_ = state_.native_root.text;
    start_ = state_.start;
    is_recursive_ = (state_.flags & FFSAddSourceFlags::RECURSIVE) != 0;
}

bool DirectoryFollower::begin(Watches& watches) {
    watches_ = &watches;
    std::vector<std::string> known;
    std::int64_t begun = 0;
    {
        const registry::SharedGuard guard;
        take_settings();
        linked_ = state_.names->linked;
        reads_ = state_.reads;
        begun = state_.names->begun - stamp_step;
        known = is_recursive_ ? known_directories(state_) : std::vector{start_};
    }
    for (const std::string& dir : known) {
        if (!watch_known(dir)) return false;
        platform::DirectoryTimes times;
        // Where nobody tells, it is read again.
        const bool is_told = platform::get_directory_times({.full = native(dir).c_str()}, times);
        if (!is_told || std::max(times.written, times.changed) >= begun) mark_directory(dir, false, false);
    }
    new_dirs_.clear();  // the tree has them
    return true;
}

/// Marks what is nearest above an unknown directory: a new one, or one that the disk spells in another way.
void DirectoryFollower::mark_above(std::string_view dir) {
    for (; !directories_.contains(dir) && dir != start_; dir = parent_directory(dir)) {
        const auto marked = directory_marks_.find(dir);
        if (marked != directory_marks_.end() && marked->second.is_deep) return;
    }
    mark_directory(std::string(dir), false, true);
}

/// Watches what was mounted. A directory that went meanwhile is marked, and one that may not be read has no names.
bool DirectoryFollower::watch_known(const std::string& dir) {
    ErrorScope scope;
    if (watch(dir)) return true;
    const platform::Failure failure = platform::last_error().failure;
    if (failure == platform::Failure::NOT_FOUND && dir != start_) {
        mark_directory(dir, true, true);
    } else if (failure != platform::Failure::ACCESS_DENIED || dir == start_) {
        return false;
    }
    scope.forget();
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
    using Kind = platform::WatchEvent::Kind;
    if (event.kind == Kind::DROPPED) {
        is_to_be_read_ = true;
        return;
    }
    if (event.kind == Kind::GONE) {
        if (dir == start_)
            is_root_gone_ = true;
        else
            mark_directory(dir, true, true);
        return;
    }
    const bool is_below = event.name.find('/') != std::string_view::npos;
    if (is_hidden(event.name) || (is_below && !is_recursive_)) return;
    std::string path = dir;
    path.append(event.name);
    if (is_below && !directories_.contains(parent_directory(path))) {
        mark_above(parent_directory(path));
        return;
    }
    const bool is_replaced = event.kind == Kind::REMOVED || event.kind == Kind::ARRIVED;  // a link to one, too
    const bool is_known_directory = is_replaced && directories_.contains(path + "/");
    if ((event.is_directory || is_known_directory) && is_recursive_) {
        const bool is_other = event.kind != Kind::RIGHTS;
        mark_directory(path + "/", is_other, is_other);
    }
    if (event.is_directory) return;
    if (event.kind == Kind::CHANGED && latest_ != nullptr && latest_->spellings.back().path == path) {
        latest_->last = now;
        latest_->is_written = true;
        return;
    }
    latest_ = &mark(std::move(path), now, event.kind != Kind::REMOVED, event.kind == Kind::CREATED);
    latest_->is_named |= event.kind != Kind::CHANGED;
}

DirectoryFollower::Mark& DirectoryFollower::mark(std::string path, std::int64_t when, bool is_written, bool is_new) {
    const auto [place, is_added] = marks_.try_emplace(lower_text(path));
    Mark& mark = place->second;
    if (is_added) {
        mark.first = mark.last = when;
        mark.is_new = is_new;
    }
    mark.last = std::max(mark.last, when);
    mark.is_written |= is_written;
    add_spelling(mark, std::move(path));
    return mark;
}

void DirectoryFollower::add_spelling(Mark& mark, std::string path) {
    const auto is_same = [&](const Spelling& spelling) { return spelling.path == path; };
    if (std::any_of(mark.spellings.begin(), mark.spellings.end(), is_same)) return;
    mark.spellings.push_back({.path = std::move(path)});
}

void DirectoryFollower::mark_directory(const std::string& dir, bool is_written, bool is_deep) {
    DirectoryMark& mark = directory_marks_[dir];
    mark.is_written |= is_written;
    mark.is_deep |= is_deep;
}

/// False, with the failure stored and in platform::last_error, when it is not watched.
bool DirectoryFollower::watch(const std::string& dir) {
    const auto [place, is_added] = directories_.try_emplace(dir, -1);
    if (is_added) new_dirs_.push_back(dir);
    const bool is_start = dir == start_;
    if (platform::Watcher::sees_below && !is_start) return true;
    const std::int64_t watch = watches_->add(native(dir).c_str(), is_start, *this, place->first);
    if (watch < 0) return false;
    const std::int64_t before = std::exchange(place->second, watch);
    if (before != watch && before >= 0) watches_->remove(before, *this, place->first);
    return true;
}

/// Forgets a directory and all below it.
void DirectoryFollower::unwatch(std::string_view dir) noexcept {
    for (auto at = directories_.lower_bound(dir); at != directories_.end() && at->first.starts_with(dir);) {
        if (at->second >= 0) watches_->remove(at->second, *this, at->first);
        at = directories_.erase(at);
    }
}

bool DirectoryFollower::prepare(std::int64_t now, std::int64_t quiet) {
    for (auto& [name, mark] : marks_) mark.is_due = false;  // should this end before it has looked
    due_ = 0;
    {
        const registry::SharedGuard guard;
        take_settings();
        is_lost_ |= std::exchange(reads_, state_.reads) != state_.reads;
    }
    if (is_root_gone_ && !find_root()) return true;
    bool is_whole = read_directories(now);
    is_whole &= look_at_due(now, quiet);
    if (!is_whole || directory_marks_.empty()) return is_whole;
    // Links, and what the system did not tell to be one, turned out to be directories.
    is_whole = read_directories(now);
    return look_at_due(now, quiet) && is_whole;
}

/// Whether there is a root to be looked at. A root that went and one that came are mounted anew.
bool DirectoryFollower::find_root() {
    const bool was_known = !directories_.empty();
    unwatch("");
    ErrorScope scope;
    const bool is_there = watch(start_);
    if (!is_there) unwatch("");
    scope.forget();
    new_dirs_.clear();
    if (!was_known && !is_there) return false;
    marks_.clear();
    latest_ = nullptr;
    directory_marks_.clear();
    due_ = 0;
    is_root_gone_ = !is_there;
    is_to_be_mounted_ = true;
    return false;
}

bool DirectoryFollower::look_at_due(std::int64_t now, std::int64_t quiet) {
    bool is_whole = true;
    due_ = 0;
    latest_ = nullptr;
    for (auto& [name, mark] : marks_) {
        mark.is_due = false;
        if (now - mark.last < quiet && (now - mark.first) / 10 < quiet) continue;
        mark.is_due = !mark.is_named || look_at(mark);
        is_whole &= mark.is_due;
        due_ += mark.is_due ? 1 : 0;
    }
    return is_whole;
}

/// False, with the failure stored, when the disk does not tell.
bool DirectoryFollower::look_at(Mark& mark) {
    for (std::size_t at = 0; at < mark.spellings.size(); ++at) {
        Spelling& spelling = mark.spellings[at];
        const std::string path = native(spelling.path);
        platform::DirectoryItem item;
        char name[platform::path_buffer_size];
        spelling.is_there = platform::look_at(path.c_str(), item, name);
        if (!spelling.is_there) {
            const platform::Failure failure = platform::last_error().failure;
            const bool is_absent =
                failure == platform::Failure::NOT_FOUND || failure == platform::Failure::PATH_TOO_LONG;
            if (!is_absent) return refuse_by_disk(path.c_str(), "cannot be looked at");
            continue;
        }
        if (item.is_directory && is_recursive_ && !directories_.contains(spelling.path + "/"))
            mark_directory(spelling.path + "/", mark.is_written, mark.is_written);
        const bool is_known = directories_.contains(parent_directory(spelling.path));
        spelling.is_there = is_known && !item.is_directory && !item.is_offline;
        if (spelling.path.ends_with(name)) continue;
        // A disk that knows no case has another spelling, which is looked at next.
        spelling.is_there = false;
        add_spelling(mark, spelling.path.substr(0, spelling.path.rfind('/') + 1) + name);
    }
    return true;
}

}  // namespace fs

#include <algorithm>
#include <limits>
#include <unordered_map>
#include <unordered_set>

#include "engine/filesystem/contract/native_path.h"
#include "engine/filesystem/contract/normalize.h"
#include "engine/filesystem/contract/set_error.h"
#include "engine/filesystem/registry/registry.h"
#include "engine/filesystem/sources/directory/follow/follower.h"
#include "engine/filesystem/sources/directory/mount/ahead.h"
#include "engine/filesystem/watch/watches.h"

// Marked directories are watched, then listed, and what they hold is compared with the table: what is in one of the two
// alone is marked. A directory that is gone, or that its parent does not list any more, has all its names marked.

namespace fs {

namespace {

constexpr std::int64_t long_ago = std::numeric_limits<std::int64_t>::min() / 2;  // due whatever the quiet time

/// Whether one of the directories is `dir` or above it.
template <class Directories>
bool holds_parent(const Directories& dirs, std::string_view dir) {
    for (; !dirs.empty(); dir = parent_directory(dir)) {
        if (dirs.contains(dir)) return true;
        if (dir.empty()) break;
    }
    return false;
}

bool is_gone(platform::Failure failure) {
    return failure == platform::Failure::NOT_FOUND || failure == platform::Failure::PATH_TOO_LONG;
}

}  // namespace

struct DirectoryFollower::Visit {
    std::string dir;
    DirectoryMark mark;
    bool is_checked = false;  // its parent lists it as a directory and no link
};

struct DirectoryFollower::Reading {
    std::vector<Visit> visits;                        // the last is next
    std::map<std::string, bool, std::less<>> listed;  // that the table may know; whether all may be other files
    std::set<std::string, std::less<>> deep;          // those below them that are not listed are gone
    std::set<std::string, std::less<>> gone;
    std::set<std::string, std::less<>> unread;  // stay as they are
    DirectoryMarks failed;                      // are read another time
    std::unordered_set<std::string> found;      // files of what is listed
    std::int64_t when = 0;
    bool is_whole_source = false;
    bool is_whole = true;
};

/// False, with the failure stored, when something could not be read; it stays marked.
bool DirectoryFollower::read_directories(std::int64_t when) {
    Reading reading;
    reading.is_whole_source = is_to_be_read_;
    reading.when = is_to_be_read_ ? long_ago : when;
    if (is_to_be_read_)
        reading.visits.push_back({.dir = start_, .mark = {.is_written = false, .is_deep = is_recursive_}});
    else
        for (const auto& [dir, mark] : directory_marks_) reading.visits.push_back({.dir = dir, .mark = mark});
    if (reading.visits.empty()) return true;
    is_to_be_read_ = true;  // should memory run out
    while (!reading.visits.empty()) {
        Visit next = std::move(reading.visits.back());
        reading.visits.pop_back();
        visit(reading, std::move(next));
    }
    compare(reading);
    is_lost_ |= reading.is_whole_source;
    is_to_be_read_ = reading.is_whole_source && reading.unread.contains(start_);
    directory_marks_.swap(reading.failed);
    return reading.is_whole;
}

void DirectoryFollower::lose(Reading& reading, const std::string& dir) {
    is_root_gone_ |= dir == start_;
    if (is_root_gone_) return;
    gone_dirs_.push_back(lower_text(dir));
    reading.gone.insert(dir);
    unwatch(dir);
}

void DirectoryFollower::visit(Reading& reading, Visit visit) {
    const std::string path = native(visit.dir);
    if (path.size() > platform::max_path_bytes) return;
    const auto give_up = [&](const char* action) {
        reading.is_whole = refuse_by_disk(path.c_str(), action);
        reading.failed[visit.dir] = visit.mark;
    };
    if (!visit.is_checked && visit.dir != start_) {
        platform::DirectoryItem item;
        char name[platform::path_buffer_size];
        const std::string_view spelled(path.data(), path.size() - 1);
        const bool is_there = platform::look_at(std::string(spelled).c_str(), item, name);
        if (!is_there && !is_gone(platform::last_error().failure)) {
            reading.unread.insert(visit.dir);
            return give_up("cannot be looked at");
        }
        // A disk that knows no case may have it under another spelling.
        const bool is_entered = is_there && item.is_directory && !item.is_offline && spelled.ends_with(name);
        if (!is_entered || (item.is_link && !directories_.contains(visit.dir) && !follows(visit.dir)))
            return lose(reading, visit.dir);
    }
    const bool was_known = reading.is_whole_source || directories_.contains(visit.dir);
    if (!watch(visit.dir)) {
        const platform::Failure failure = platform::last_error().failure;
        if (is_gone(failure)) return lose(reading, visit.dir);
        if (failure != platform::Failure::ACCESS_DENIED) {
            reading.is_whole = false;
            reading.failed[visit.dir] = {.is_written = false,
                                         .is_deep = visit.mark.is_deep};  // it is listed all the same
        }
    }
    platform::DirectoryListing listing;
    if (!platform::list_directory({.full = path.c_str()}, listing)) {
        const platform::Failure failure = platform::last_error().failure;
        if (failure == platform::Failure::NOT_FOUND) return lose(reading, visit.dir);
        reading.unread.insert(visit.dir);
        if (failure != platform::Failure::ACCESS_DENIED) return give_up("cannot be listed");
        return;
    }
    if (was_known) reading.listed[visit.dir] |= visit.mark.is_written;
    if (was_known && visit.mark.is_deep) reading.deep.insert(visit.dir);
    enter(reading, visit, listing);
}

void DirectoryFollower::enter(Reading& reading, const Visit& visit, const platform::DirectoryListing& listing) {
    const bool was_known = reading.listed.contains(visit.dir);
    std::set<std::string, std::less<>> below;
    for (const platform::DirectoryItem& item : listing.items()) {
        if (is_passed_over(item)) continue;
        std::string path = visit.dir + std::string(item.name, item.length);
        if (!item.is_directory) {
            if (was_known)
                reading.found.insert(std::move(path));
            else
                mark(std::move(path), reading.when, true, true).is_named = true;
            continue;
        }
        if (!is_recursive_) continue;
        path += '/';
        if (visit.mark.is_deep || !directories_.contains(path)) {
            const DirectoryMark mark{.is_written = visit.mark.is_written, .is_deep = true};
            reading.visits.push_back({.dir = path, .mark = mark, .is_checked = !item.is_link});
        }
        below.insert(std::move(path));
    }
    std::vector<std::string> missing;
    for (auto at = directories_.upper_bound(visit.dir); at != directories_.end(); ++at) {
        if (!at->first.starts_with(visit.dir)) break;
        if (parent_directory(at->first) == visit.dir && !below.contains(at->first)) missing.push_back(at->first);
    }
    for (const std::string& dir : missing) lose(reading, dir);
}

/// Marks what is in the table or on the disk alone, and what may be other files.
void DirectoryFollower::compare(Reading& reading) {
    if (reading.listed.empty() && reading.gone.empty()) return;
    enum class Fate : std::uint8_t { STAYS, LISTED, WRITTEN, GONE };
    const auto fate_of = [&](std::string_view dir) {
        const auto listed = reading.listed.find(dir);
        const bool is_known = directories_.contains(dir);  // it may be listed, and then its parent lost
        if (is_known && listed != reading.listed.end()) return listed->second ? Fate::WRITTEN : Fate::LISTED;
        const bool is_gone = holds_parent(reading.gone, dir) || holds_parent(reading.deep, dir);
        return is_gone && !holds_parent(reading.unread, dir) ? Fate::GONE : Fate::STAYS;
    };
    std::unordered_map<std::uint32_t, Fate> fates;  // by the number of the directory
    const registry::SharedGuard guard;
    const NameTable& table = state_.names->table;
    for (std::uint32_t file = table.first(); file != NameTable::none; file = table.next(file)) {
        const auto [fate, is_new] = fates.try_emplace(table.dir_number(file), Fate::STAYS);
        if (is_new) fate->second = fate_of(table.spelled_dir(file));
        if (fate->second == Fate::STAYS) continue;
        std::string path(table.spelled_dir(file));
        path.append(table.spelled_name(file));
        const bool is_found = fate->second != Fate::GONE && reading.found.erase(path) != 0;
        if (!is_found || fate->second == Fate::WRITTEN)
            mark(std::move(path), reading.when, is_found, false).is_named = true;
    }
    for (const std::string& path : reading.found) mark(path, reading.when, true, true).is_named = true;
}

/// Whether a scan would enter this link: not to a directory on its own way, and through another link only where no link has
/// led so far.
bool DirectoryFollower::follows(std::string_view link) {
    platform::FileId id;
    if (!platform::get_directory_id(native(link).c_str(), id)) return false;
    bool is_behind_link = false;
    for (std::string_view dir = link; dir != start_;) {
        dir = parent_directory(dir);
        platform::FileId above;
        const std::string path = native(dir);
        if (platform::get_directory_id(path.empty() ? "." : path.c_str(), above) && above == id) return false;
        if (dir != start_) is_behind_link |= platform::is_link(path.substr(0, path.size() - 1).c_str());
    }
    const bool is_new = linked_.insert({id.device, id.inode}).second;
    return is_new || !is_behind_link;
}

}  // namespace fs

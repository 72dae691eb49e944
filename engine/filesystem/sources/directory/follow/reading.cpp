#include <algorithm>
#include <limits>
#include <unordered_set>

#include "engine/filesystem/contract/native_path.h"
#include "engine/filesystem/contract/normalize.h"
#include "engine/filesystem/contract/set_error.h"
#include "engine/filesystem/registry/registry.h"
#include "engine/filesystem/sources/directory/follow/follower.h"
#include "engine/filesystem/sources/directory/mount/ahead.h"

// Marked directories are watched, then listed, and what they hold is compared with the table: what is in one of the two
// alone is marked. A directory that is gone, or that its parent does not list any more, has all its names marked.

namespace fs {

namespace {

constexpr std::int64_t long_ago = std::numeric_limits<std::int64_t>::min() / 2;  // due whatever the quiet time

enum class Fate : std::uint8_t { STAYS, LISTED, REPLACED, GONE };  // of the files that the table has in a directory

/// Takes out a directory and all below it.
template <class Map>
void erase_tree(Map& directories, std::string_view dir) {
    const auto first = directories.lower_bound(dir);
    directories.erase(first, std::find_if_not(first, directories.end(),
                                              [&](const auto& each) { return each.first.starts_with(dir); }));
}

struct Outcome {  // of a directory
    Fate fate = Fate::STAYS;
    Fate below = Fate::STAYS;  // of the directories below it that have no outcome of their own
};

}  // namespace

struct DirectoryFollower::Visit {
    std::string dir;
    Extent extent = Extent::ITSELF;
    bool is_checked = false;  // its parent lists it as a directory and no link
};

struct DirectoryFollower::Reading {
    std::int64_t when = 0;
    bool is_whole_source = false;
    std::vector<Visit> visits = {};  // the last is next
    std::map<std::string, Outcome, std::less<>> outcomes = {};
    std::unordered_set<std::string> found = {};  // files in directories that the table may know
    DirectoryMarks failed = {};                  // are read another time
    bool is_whole = true;

    Fate fate_of(std::string_view dir) const {
        for (std::string_view at = dir;; at = parent_directory(at)) {
            const auto found_at = outcomes.find(at);
            if (found_at != outcomes.end()) return at == dir ? found_at->second.fate : found_at->second.below;
            if (at.empty()) return Fate::STAYS;
        }
    }
    /// Leaves a directory as it is until it is read another time.
    void put_off(const Visit& visit, const std::string& path, const char* action) {
        outcomes[visit.dir] = {};
        failed[visit.dir] = visit.extent;
        is_whole = refuse_by_disk(path.c_str(), action);
    }
};

/// False, with the failure stored, when something could not be read; it stays marked.
bool DirectoryFollower::read_directories(std::int64_t when) {
    Reading reading{.when = is_to_be_read_ ? long_ago : when, .is_whole_source = is_to_be_read_};
    if (is_to_be_read_) mark_directory(start_, is_recursive_ ? Extent::BELOW : Extent::ITSELF);
    if (directory_marks_.empty()) return true;
    for (const auto& [dir, extent] : directory_marks_) reading.visits.push_back({.dir = dir, .extent = extent});
    is_to_be_read_ = true;  // should memory run out
    while (!reading.visits.empty()) {
        const Visit next = std::move(reading.visits.back());
        reading.visits.pop_back();
        visit(reading, next);
    }
    compare(reading);
    is_lost_ |= reading.is_whole_source;
    is_to_be_read_ = reading.is_whole_source && reading.fate_of(start_) == Fate::STAYS;
    directory_marks_.swap(reading.failed);
    return reading.is_whole;
}

void DirectoryFollower::lose(Reading& reading, const std::string& dir) {
    is_root_gone_ |= dir == start_;
    if (is_root_gone_) return;
    gone_dirs_.insert(lower_text(dir));
    erase_tree(directories_, dir);
    erase_tree(reading.outcomes, dir);
    reading.outcomes[dir] = {Fate::GONE, Fate::GONE};
}

/// Whether a scan would enter what is at `path` as this directory. What is not entered is lost, or put off.
bool DirectoryFollower::is_entered(Reading& reading, const Visit& visit, const std::string& path) {
    platform::DirectoryItem item;
    char name[platform::path_buffer_size];
    const bool is_there = platform::look_at(path.substr(0, path.size() - 1).c_str(), item, name);
    if (!is_there && !is_absent(platform::last_error().failure)) {
        reading.put_off(visit, path, "cannot be looked at");
        return false;
    }
    // A disk that knows no case may have it in another.
    const bool is_spelled = is_there && visit.dir == std::string(parent_directory(visit.dir)) + name + '/';
    const bool is_wanted = is_spelled && item.is_directory && !item.is_offline;
    if (is_wanted && (!item.is_link || directories_.contains(visit.dir) || follows(visit.dir))) return true;
    lose(reading, visit.dir);
    return false;
}

void DirectoryFollower::visit(Reading& reading, const Visit& visit) {
    // It may have gone with its parent, while a disk that knows no case has another there.
    if (visit.dir != start_ && !directories_.contains(parent_directory(visit.dir))) return;
    const std::string path = native(visit.dir);
    if (path.size() > platform::max_path_bytes) return;
    if (!visit.is_checked && visit.dir != start_ && !is_entered(reading, visit, path)) return;
    const bool is_new = !directories_.contains(visit.dir);
    if (is_new) new_dirs_.push_back(visit.dir);
    if (!watch(visit.dir)) {
        const platform::Failure failure = platform::last_error().failure;
        if (is_absent(failure)) return lose(reading, visit.dir);
        if (failure != platform::Failure::ACCESS_DENIED) {  // it is listed all the same
            reading.is_whole = false;
            reading.failed[visit.dir] = std::min(visit.extent, Extent::BELOW);
        }
    }
    platform::DirectoryListing listing;
    if (!platform::list_directory({.full = path.c_str()}, listing)) {
        const platform::Failure failure = platform::last_error().failure;
        if (is_absent(failure)) return lose(reading, visit.dir);
        if (failure != platform::Failure::ACCESS_DENIED) return reading.put_off(visit, path, "cannot be listed");
        reading.outcomes[visit.dir] = {};
        return;
    }
    if (reading.is_whole_source || !is_new) {
        Outcome& outcome = reading.outcomes[visit.dir];  // it may have been visited before
        outcome.fate = std::max(outcome.fate, visit.extent == Extent::REPLACED ? Fate::REPLACED : Fate::LISTED);
        outcome.below = std::max(outcome.below, visit.extent == Extent::ITSELF ? Fate::STAYS : Fate::GONE);
    }
    enter(reading, visit, listing);
}

void DirectoryFollower::enter(Reading& reading, const Visit& visit, const platform::DirectoryListing& listing) {
    const bool is_compared = reading.outcomes.contains(visit.dir);
    DirectorySet missing = known_in(visit.dir);
    for (const platform::DirectoryItem& item : listing.items()) {
        if (is_passed_over(item)) continue;
        std::string path = visit.dir + std::string(item.name, item.length);
        if (!item.is_directory) {
            if (is_compared)
                reading.found.insert(std::move(path));
            else
                mark(std::move(path), Kind::CREATED, reading.when);
            continue;
        }
        path += '/';
        const bool was_known = missing.erase(path) != 0;
        if (is_recursive_ && (!was_known || visit.extent != Extent::ITSELF)) {
            const Extent extent = std::max(visit.extent, Extent::BELOW);
            reading.visits.push_back({.dir = std::move(path), .extent = extent, .is_checked = !item.is_link});
        }
    }
    for (const std::string& dir : missing) lose(reading, dir);
}

/// The known directories that lie in one.
DirectoryFollower::DirectorySet DirectoryFollower::known_in(const std::string& dir) const {
    DirectorySet known;
    for (auto at = directories_.upper_bound(dir); at != directories_.end() && at->first.starts_with(dir); ++at) {
        if (parent_directory(at->first) == dir) known.insert(at->first);
    }
    return known;
}

/// Marks what is in the table or on the disk alone, and what may be other files.
void DirectoryFollower::compare(Reading& reading) {
    if (reading.outcomes.empty()) return;
    std::unordered_map<std::uint32_t, Fate> fates;  // by the number of the directory
    const registry::SharedGuard guard;
    const NameTable& table = state_.names->table;
    for (std::uint32_t file = table.first(); file != NameTable::none; file = table.next(file)) {
        const auto [fate, is_new] = fates.try_emplace(table.dir_number(file), Fate::STAYS);
        if (is_new) fate->second = reading.fate_of(table.spelled_dir(file));
        if (fate->second == Fate::STAYS) continue;
        std::string path = spelled_path(file);
        const bool is_found = fate->second != Fate::GONE && reading.found.erase(path) != 0;
        if (!is_found || fate->second == Fate::REPLACED)
            mark(std::move(path), is_found ? Kind::ARRIVED : Kind::REMOVED, reading.when);
    }
    for (const std::string& path : reading.found) mark(path, Kind::CREATED, reading.when);
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
    return linked_.insert({id.device, id.inode}).second || !is_behind_link;
}

}  // namespace fs

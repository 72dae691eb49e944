#include <algorithm>
#include <limits>
#include <memory>
#include <unordered_map>

#include "engine/filesystem/contract/failure.h"
#include "engine/filesystem/contract/path_text.h"
#include "engine/filesystem/registry/registry.h"
#include "engine/filesystem/sources/directory/follower.h"
#include "engine/filesystem/sources/directory/scan.h"

// Marked directories are read as a mount reads them, each being watched before it is listed, and what was read is compared
// with the table: names that are in one of the two alone are marked.
//
// Which links to directories a scan follows depends on all that it met before. So where a link is met, or where a directory
// is gone and there are links, which may have led to it, the whole source is read.

namespace fs {

struct DirectoryFollower::Reading final : ScanGuide {
    explicit Reading(DirectoryFollower& of) : follower(of), names(of.settings_.no_names()) {}

    void read_marked() {
        const std::string* top = nullptr;
        for (const auto& [dir, extent] : follower.directory_marks_) {
            if (top != nullptr && dir.starts_with(*top)) continue;  // read already
            top = &dir;
            if (is_reached(dir))
                scan_directory(follower.settings_, *names, dir, names->tree, follower.is_recursive_, nullptr, this);
            for (auto at = follower.directories_.lower_bound(dir);
                 at != follower.directories_.end() && at->first.starts_with(dir); ++at) {
                if (!entered.contains(at->first) && !is_below_any(put_off, at->first)) lost.push_back(at->first);
            }
        }
    }
    /// Whether the scan of the whole source would come to a marked directory.
    bool is_reached(const std::string& dir) {
        if (dir == follower.settings_.start) return true;
        // Its parent may have gone, while a disk that knows no case has another there.
        if (!follower.directories_.contains(parent_directory(dir))) return false;
        platform::DirectoryItem item;
        char name[platform::path_buffer_size];
        if (!platform::look_at(follower.native(dir.substr(0, dir.size() - 1)).c_str(), item, name)) {
            if (!is_absent(platform::last_error().failure)) cannot_list(dir, platform::last_error());
            return false;
        }
        const bool is_spelled = dir == std::string(parent_directory(dir)) + name + '/';
        has_met_link |= item.is_directory && item.is_link;
        return is_spelled && item.is_directory && !item.is_offline;
    }
    bool enters(std::string_view path, bool is_link) override {
        has_met_link |= is_link;
        if (has_met_link && !covers_all()) return false;
        const std::string dir(path);
        const bool is_known = follower.directories_.contains(dir) && !follower.new_dirs_.contains(dir);
        has_met_known |= is_known;
        if (!is_known) follower.new_dirs_.insert(dir);
        if (!follower.watch(dir)) {
            const platform::Failure failure = platform::last_error().failure;
            follower.is_root_gone_ |= is_absent(failure) && dir == follower.settings_.start;
            if (is_absent(failure)) return false;
            if (failure != platform::Failure::ACCESS_DENIED) failed[dir] = Extent::NAMES;  // it is listed all the same
        }
        entered.insert(dir);
        return true;
    }
    void cannot_list(std::string_view dir, const platform::Error& error) override {
        put_off.emplace(dir);
        if (error.failure == platform::Failure::ACCESS_DENIED) return;  // a mount is content with that, too
        failed[std::string(dir)] = extent_of(dir);
        set_error_from_platform(follower.native(dir).c_str(), "cannot be listed", error);
    }

    bool covers_all() const { return follower.directory_marks_.contains(follower.settings_.start); }
    Extent extent_of(std::string_view dir) const {
        if (!follower.is_recursive_ && dir != follower.settings_.start) return Extent::NOTHING;
        Extent extent = Extent::NOTHING;
        for (;; dir = parent_directory(dir)) {
            const auto marked = follower.directory_marks_.find(dir);
            if (marked != follower.directory_marks_.end()) extent = std::max(extent, marked->second);
            if (dir.empty()) return extent;
        }
    }
    /// Marks what is in the table or on the disk alone, what may be other files and, with `is_new_told`, all that is in new
    /// directories.
    void compare(bool is_new_told, std::int64_t when) const {
        const registry::SharedGuard guard;
        const NameTable& table = follower.state_.names->table;
        for (std::uint32_t file = names->table.first(); file != NameTable::none; file = names->table.next(file)) {
            const std::string_view dir = names->table.spelled_dir(file);
            std::string path = names->table.spelled_path(file);
            const bool is_new = is_new_told && follower.new_dirs_.contains(dir);
            const bool is_held = !is_new && table.holds_spelled(lower_text(path), path);
            if (!is_held || extent_of(dir) == Extent::FILES)
                follower.mark(std::move(path), is_held ? Kind::ARRIVED : Kind::CREATED, when);
        }
        if (!has_met_known && lost.empty()) return;
        std::unordered_map<std::uint32_t, bool> was_read;  // by the number of the directory
        for (std::uint32_t file = table.first(); file != NameTable::none; file = table.next(file)) {
            const std::string_view dir = table.spelled_dir(file);
            const auto [known, is_added] = was_read.try_emplace(table.dir_number(file));
            if (is_added) known->second = extent_of(dir) != Extent::NOTHING && !is_below_any(put_off, dir);
            if (!known->second) continue;
            std::string path = table.spelled_path(file);
            if (!names->table.holds_spelled(lower_text(path), path))
                follower.mark(std::move(path), Kind::REMOVED, when);
        }
    }

    DirectoryFollower& follower;
    std::unique_ptr<MountedNames> names;  // that were read
    DirectorySet entered;
    DirectorySet put_off;           // what they and those below them hold stays as it is
    std::vector<std::string> lost;  // known directories that were not come to
    DirectoryMarks failed;          // to be read another time
    bool has_met_link = false;
    bool has_met_known = false;  // a directory of which the table may hold files
};

/// False, with the failure stored, when something could not be read; it stays marked.
bool DirectoryFollower::read_directories(std::int64_t now) {
    const bool is_all_doubtful = is_to_be_read_;
    if (is_all_doubtful) mark_directory(settings_.start, Extent::NAMES);
    if (directory_marks_.empty()) return true;
    is_to_be_read_ = true;  // should memory run out
    Reading reading(*this);
    reading.read_marked();
    is_to_be_read_ = is_all_doubtful;
    if (is_root_gone_) return true;
    if (!reading.covers_all() && (reading.has_met_link || (may_have_links_ && !reading.lost.empty()))) {
        mark_directory(settings_.start, Extent::NAMES);
        return read_directories(now);
    }
    is_to_be_read_ = true;
    constexpr std::int64_t long_ago = std::numeric_limits<std::int64_t>::min() / 2;  // due whatever the quiet time
    reading.compare(!is_all_doubtful, is_all_doubtful ? long_ago : now);
    for (const std::string& dir : reading.lost) {
        gone_dirs_.insert(lower_text(dir));
        directories_.erase(dir);
    }
    if (reading.covers_all()) may_have_links_ = !reading.names->linked.empty();
    is_lost_ |= is_all_doubtful;
    is_to_be_read_ = is_all_doubtful && reading.put_off.contains(settings_.start);
    directory_marks_.swap(reading.failed);
    return directory_marks_.empty();
}

}  // namespace fs

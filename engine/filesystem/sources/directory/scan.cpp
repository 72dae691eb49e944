#include "engine/filesystem/sources/directory/scan.h"

#include <algorithm>
#include <iterator>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include <engine/kernel/multithreading.h>

#include "engine/filesystem/contract/path_text.h"
#include "engine/filesystem/sources/directory/listing.h"
#include "engine/platform/directories.h"
#include "engine/platform/threads.h"

// A scan takes one native directory after the other and enters what it finds: files into the table, directories into the
// tree. Subdirectories wait until the files of their directory are in, because the order of entry is the order in which
// lookups find them. While names are entered the next directories are listed already.

namespace fs {

namespace {

constexpr std::size_t worth_a_thread = 32;  // directories
constexpr std::size_t window = 8;           // how many of the next directories are listed ahead
constexpr std::ptrdiff_t worth_waking = 4;  // so many of them are worth waking a thread
constexpr std::size_t most_ahead = 32;      // a scan in the depth leaves those of the upper directories waiting

/// Whether a scan takes no notice of an item.
bool is_passed_over(const platform::DirectoryItem& item) { return item.name[0] == '#' || item.is_offline; }

// The times are taken before the directory is read, so that a change meanwhile makes them look old.
platform::DirectoryTimes recorded_times(const platform::PathAt& path) {
    platform::DirectoryTimes times;
    const bool is_trusted =
        platform::get_directory_times(path, times) && times.written <= platform::now_utc() - stamp_step;
    return is_trusted ? times : dir_listing::untrusted_times;
}

struct Directory {
    std::string path;  // native; ends in "/" unless it is the current one
    bool is_link = false;

    // What is in it, once it was listed.
    platform::DirectoryListing items;
    platform::DirectoryTimes times;  // as dir_listing keeps them; only where times are wanted
    bool is_complete = false;        // read to its end
    platform::Error error;           // else why not

    // Guarded by the lock of the listing while it waits.
    bool is_begun = false;  // somebody lists it
    bool is_done = false;
};
using DirectoryPtr = std::shared_ptr<Directory>;  // who lists it has a share: a scan that fails drops its own

/// Links are looked at before they are entered, and over-long paths never are.
bool may_be_listed(const DirectoryPtr& directory) {
    return !directory->is_begun && !directory->is_link && directory->path.size() <= platform::max_path_bytes;
}

/// The directories that a scan has yet to enter. Those that come next are listed on a second thread while the scan enters the
/// names of those before. The thread is started when there is enough to list and a core to run it on; without it the
/// caller's thread lists everything, with the same results. What adds may throw std::bad_alloc.
///
/// Threads  one thread uses the object; the second one is its own.
class ListingAhead {
public:
    /// Without `is_ahead` there is no second thread.
    ListingAhead(const NativeRoot& root, bool with_times, bool is_ahead)
        : root_(root), with_times_(with_times), was_started_(!is_ahead) {}
    ListingAhead(const ListingAhead&) = delete;
    ListingAhead& operator=(const ListingAhead&) = delete;
    ~ListingAhead() {
        {
            const std::lock_guard guard(lock_);
            is_stopping_ = true;
        }
        has_work_.notify_one();
        thread_.Join();
    }

    /// Adds what lies in `parent` and is a directory for a scan: they come next, in this order. Answers how many they are.
    std::size_t add(const Directory& parent) {
        std::vector<DirectoryPtr> found;
        for (const platform::DirectoryItem& item : parent.items.items()) {
            if (!item.is_directory || is_passed_over(item)) continue;
            auto directory = std::make_shared<Directory>();
            directory->path.reserve(parent.path.size() + item.length + 1);
            directory->path.append(parent.path).append(item.name, item.length).append("/");
            directory->is_link = item.is_link;
            found.push_back(std::move(directory));
        }
        const std::lock_guard guard(lock_);
        waiting_.insert(waiting_.end(), std::make_move_iterator(found.rbegin()), std::make_move_iterator(found.rend()));
        wake_if_worth();
        if (!was_started_ && waiting_.size() >= worth_a_thread) {
            was_started_ = true;  // a start that fails is no failure: nothing is listed ahead then
            const auto run = [](void* self) { static_cast<ListingAhead*>(self)->work(); };
            if (std::thread::hardware_concurrency() > 1) thread_.Start("fs listing", run, this);
        }
        return found.size();
    }
    /// Takes out the directory that comes next.
    DirectoryPtr take_next() {
        const std::lock_guard guard(lock_);
        DirectoryPtr next = std::move(waiting_.back());
        waiting_.pop_back();
        if (next->is_begun) --ahead_;
        wake_if_worth();
        return next;
    }
    /// Fills in what a directory holds that was taken out, or was never added. Never throws.
    void list(Directory& directory) {
        std::unique_lock guard(lock_);
        if (!directory.is_begun) {
            guard.unlock();
            return list_now(directory);
        }
        // Instead of waiting for the other thread, the next directory behind is listed.
        while (!directory.is_done && list_another(guard)) {
        }
        is_listed_.wait(guard, [&] { return directory.is_done; });
    }

private:
    void work() {
        std::unique_lock guard(lock_);
        while (!is_stopping_) {
            if (list_another(guard)) continue;
            is_idle_ = true;
            has_work_.wait(guard, [&] { return !is_idle_ || is_stopping_; });
        }
    }
    auto end_of_window() { return waiting_.rbegin() + static_cast<std::ptrdiff_t>(std::min(window, waiting_.size())); }
    /// Lists the next directory that nobody lists, without the lock. False when there is none, or too many listings are about.
    bool list_another(std::unique_lock<platform::Mutex>& guard) {
        if (ahead_ == most_ahead) return false;
        const auto next = std::find_if(waiting_.rbegin(), end_of_window(), may_be_listed);
        if (next == end_of_window()) return false;
        const DirectoryPtr directory = *next;
        ++ahead_;
        directory->is_begun = true;
        guard.unlock();
        list_now(*directory);
        guard.lock();
        directory->is_done = true;
        is_listed_.notify_one();
        return true;
    }
    /// One directory alone is listed sooner than a sleeping thread wakes.
    void wake_if_worth() {
        if (!is_idle_ || std::count_if(waiting_.rbegin(), end_of_window(), may_be_listed) < worth_waking) return;
        is_idle_ = false;
        has_work_.notify_one();
    }
    void list_now(Directory& directory) const {
        const platform::PathAt at = path_at(directory.path.c_str(), root_.text.size(), root_.handle.get());
        if (with_times_) directory.times = recorded_times(at);
        directory.is_complete = platform::list_directory(at, directory.items);
        if (!directory.is_complete) directory.error = platform::last_error();
    }

    const NativeRoot& root_;
    const bool with_times_;
    bool was_started_;

    platform::Mutex lock_;               // guards what follows
    std::vector<DirectoryPtr> waiting_;  // the last is next
    std::size_t ahead_ = 0;              // of those, how many are begun
    bool is_idle_ = false;
    bool is_stopping_ = false;

    platform::ConditionVariable has_work_;
    platform::ConditionVariable is_listed_;
    mt::CThread thread_;
};

class Scan {
public:
    Scan(const DirectoryState& state, MountedNames& to, bool recursive, dir_listing* listing, ScanGuide* guide)
        : state_(state),
          to_(to),
          recursive_(recursive),
          listing_(listing),
          guide_(guide),
          ahead_(state.native_root, listing != nullptr, guide == nullptr) {}

    void enter(Directory& directory, fs::dir& node) {
        const std::string_view below_root = std::string_view(directory.path).substr(state_.native_root.text.size());
        if (guide_ && !guide_->enters(below_root, directory.is_link)) return;
        ahead_.list(directory);
        if (listing_) listing_->add_directory(below_root, directory.times);
        if (!directory.is_complete) note_unlisted(below_root, directory.error);
        const std::uint32_t dir = to_.table.intern_dir(below_root);
        for (const platform::DirectoryItem& item : directory.items.items()) {
            if (item.is_directory || is_passed_over(item)) continue;
            state_.enter(to_, dir, {item.name, item.length});
            if (listing_) listing_->add_file({item.name, item.length});
        }
        std::size_t left = recursive_ ? ahead_.add(directory) : 0;
        directory.items.clear();
        chain_.push_back({directory.path.c_str(), std::nullopt});
        for (; left > 0; --left) enter_next_below(directory, node);
        chain_.pop_back();
    }

private:
    struct Chained {
        const char* path;  // of an ancestor
        std::optional<platform::FileId> id;
    };

    // A record of what could not be listed would make a passing failure last.
    void note_unlisted(std::string_view dir, const platform::Error& error) {
        if (listing_) listing_->spoil();
        // A guide has it read another time.
        if (error.failure == platform::Failure::OUT_OF_MEMORY && guide_ == nullptr) throw std::bad_alloc();
        if (error.failure == platform::Failure::NOT_FOUND) return;
        if (guide_) guide_->cannot_list(dir, error);
        to_.unlisted.insert(lower_text(dir));
        to_.unlisted_error = error;
    }
    void enter_next_below(const Directory& parent, fs::dir& node) {
        const DirectoryPtr taken = ahead_.take_next();
        Directory& next = *taken;
        if (next.path.size() > platform::max_path_bytes) {
            const std::string_view below = std::string_view(next.path).substr(state_.native_root.text.size());
            to_.note_too_long(below.substr(0, below.size() - 1), "");
            if (listing_) listing_->spoil();
            return;
        }
        if (next.is_link && !follows(next.path.c_str())) return;
        const std::string name = lower_text(std::string_view(next.path).substr(parent.path.size()));
        fs::dir* const child = node.add_child(name.data(), name.size() - 1);
        if (child == nullptr) throw std::bad_alloc();
        links_on_chain_ += next.is_link ? 1 : 0;
        enter(next, *child);
        links_on_chain_ -= next.is_link ? 1 : 0;
    }
    // Whether a link is entered. Identities are asked for only where links make it necessary.
    bool follows(const char* link) {
        platform::FileId id;
        if (!platform::get_directory_id(link, id) || is_on_chain(id)) return false;
        const bool is_new = to_.linked.insert({id.device, id.inode}).second;
        return is_new || links_on_chain_ == 0;
    }
    bool is_on_chain(const platform::FileId& id) {
        return std::any_of(chain_.begin(), chain_.end(), [&](Chained& ancestor) {
            platform::FileId found;
            if (!ancestor.id && platform::get_directory_id(*ancestor.path == '\0' ? "." : ancestor.path, found))
                ancestor.id = found;
            return ancestor.id == id;
        });
    }

    const DirectoryState& state_;
    MountedNames& to_;
    bool recursive_;
    dir_listing* listing_;
    ScanGuide* guide_;
    ListingAhead ahead_;
    std::vector<Chained> chain_;  // the directories from the root to the one that is being entered
    std::size_t links_on_chain_ = 0;
};

}  // namespace

bool is_below_any(const std::set<std::string, std::less<>>& dirs, std::string_view dir) {
    for (;;) {
        if (dirs.contains(dir)) return true;
        if (dir.empty()) return false;
        dir = parent_directory(dir);
    }
}

void scan_directory(const DirectoryState& state, MountedNames& to, std::string_view dir, fs::dir& node, bool recursive,
                    dir_listing* listing, ScanGuide* guide) {
    NativePath path;
    if (!build_native_path(state.native_root, dir, {}, path)) return;
    Directory directory;
    directory.path = path.view();
    Scan(state, to, recursive, listing, guide).enter(directory, node);
}

}  // namespace fs

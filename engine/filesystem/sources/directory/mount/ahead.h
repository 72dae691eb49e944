#pragma once

#include <cstddef>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include <engine/kernel/multithreading.h>

#include "engine/filesystem/sources/paths.h"
#include "engine/platform/directories.h"
#include "engine/platform/lock.h"

namespace fs {

/// The directories that a scan has yet to enter. Those that come next are listed on a second thread while the scan enters the
/// names of those before. The thread is started when there is enough to list and a core to run it on; without it the
/// caller's thread lists everything, with the same results. What adds or lists may throw std::bad_alloc.
///
/// Threads  one thread uses the object; the second one is its own.
class ListingAhead {
public:
    struct Listed {
        platform::DirectoryListing items;
        platform::DirectoryTimes times;  // as dir_listing keeps them; only where times are wanted
        bool is_complete = false;        // read to its end
        platform::Error error;           // else why not
    };
    struct Slot {
        std::string path;
        Listed listed;
        bool is_done = false;
    };
    struct Directory {
        std::string path;  // native; ends in "/" unless it is the current one
        bool is_link = false;
        Slot* slot = nullptr;  // of its listing, when it is being made or waits to be asked for

        /// Links are looked at before they are entered, and over-long paths never are.
        bool may_be_listed() const { return slot == nullptr && !is_link && path.size() <= platform::max_path_bytes; }
    };

    ListingAhead(const NativeRoot& root, bool with_times) : root_(root), with_times_(with_times) {}
    ListingAhead(const ListingAhead&) = delete;
    ListingAhead& operator=(const ListingAhead&) = delete;
    ~ListingAhead();

    /// Adds those of `items` that are directories for a scan, which lie in `parent`: they come next, in this order. Answers
    /// how many they are.
    std::size_t add(const Directory& parent, const platform::DirectoryListing& items);
    /// Takes out the directory that comes next.
    Directory take_next();
    /// What a directory holds that was taken out last, or was never added. Valid until the next call of take_next.
    const Listed& list(const Directory& directory);

private:
    void work();
    Slot* begin_another();
    bool is_worth_waking() const;
    void list_now(const std::string& path, Listed& out) const;

    const NativeRoot& root_;
    const bool with_times_;
    Listed own_;
    Slot* taken_ = nullptr;  // that of the directory taken out last
    bool was_started_ = false;

    platform::Mutex lock_;            // guards what follows
    std::vector<Directory> waiting_;  // the last is next
    std::vector<std::unique_ptr<Slot>> slots_;
    std::vector<Slot*> free_;  // with room for all slots
    bool is_idle_ = false;
    bool is_stopping_ = false;

    platform::ConditionVariable has_work_;
    platform::ConditionVariable is_listed_;
    mt::CThread thread_;
};

/// Whether a scan takes no notice of an item.
inline bool is_passed_over(const platform::DirectoryItem& item) { return item.name[0] == '#' || item.is_offline; }

}  // namespace fs

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
#include "engine/platform/threads.h"

namespace fs {

/// The directories that a scan has yet to enter. Those that come next are listed on a second thread while the scan enters the
/// names of those before. The thread is started when there is enough to list and a core to run it on; without it the
/// caller's thread lists everything, with the same results. What adds may throw std::bad_alloc.
///
/// Threads  one thread uses the object; the second one is its own.
class ListingAhead {
public:
    struct Directory {
        std::string path;  // native; ends in "/" unless it is the current one
        bool is_link = false;

        // What is in it, once it was listed.
        platform::DirectoryListing items;
        platform::DirectoryTimes times;  // as dir_listing keeps them; only where times are wanted
        bool is_complete = false;        // read to its end
        platform::Error error;           // else why not

        // Guarded by the lock while it waits.
        bool is_begun = false;  // somebody lists it
        bool is_done = false;

        /// Links are looked at before they are entered, and over-long paths never are.
        bool may_be_listed() const { return !is_begun && !is_link && path.size() <= platform::max_path_bytes; }
    };
    using DirectoryPtr = std::unique_ptr<Directory>;

    /// Without `is_ahead` there is no second thread.
    ListingAhead(const NativeRoot& root, bool with_times, bool is_ahead)
        : root_(root), with_times_(with_times), was_started_(!is_ahead) {}
    ListingAhead(const ListingAhead&) = delete;
    ListingAhead& operator=(const ListingAhead&) = delete;
    ~ListingAhead();

    /// Adds what lies in `parent` and is a directory for a scan: they come next, in this order. Answers how many they are.
    std::size_t add(const Directory& parent);
    /// Takes out the directory that comes next.
    DirectoryPtr take_next();
    /// Fills in what a directory holds that was taken out, or was never added. Never throws.
    void list(Directory& directory);

private:
    void work();
    Directory* begin_another();
    bool is_worth_waking() const;
    void list_now(Directory& directory) const;

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

/// Whether a scan takes no notice of an item.
inline bool is_passed_over(const platform::DirectoryItem& item) { return item.name[0] == '#' || item.is_offline; }

}  // namespace fs

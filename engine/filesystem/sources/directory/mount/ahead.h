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

/// Lists the directories that a scan will reach next on a second thread, while the scan enters the names of those before.
/// The thread is started when there is enough to list and a core to run it on; without it the caller's thread lists
/// everything, with the same results. What adds or lists may throw std::bad_alloc.
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

    ListingAhead(const NativeRoot& root, bool with_times) : root_(root), with_times_(with_times) {}
    ListingAhead(const ListingAhead&) = delete;
    ListingAhead& operator=(const ListingAhead&) = delete;
    ~ListingAhead();

    /// Tells of a subdirectory of `parent`, which ends in "/".
    void prefetch(const NativePath& parent, std::string_view name, bool is_link);
    /// Lists those that were told of since the last time, first told first and before all earlier ones. Each
    /// must then be asked for with next() or passed over with skip(), in that order.
    void start_prefetching();
    /// For links that are not followed and what is too long to be entered.
    void skip();
    /// What the directory holds that is next, `path`. Valid until the next call.
    const Listed& next(const NativePath& path);
    /// The same for a directory that nobody told of.
    const Listed& list_now(const NativePath& path);

private:
    /// A listing that is being made or waits to be asked for.
    struct Slot {
        NativePath path;
        Listed listed;
        bool is_done = false;
    };
    struct Pending {
        std::string path;
        std::size_t root_length;
        bool may_be_ahead;  // links are looked at before they are entered, and over-long paths never are
        Slot* slot = nullptr;

        bool waits() const { return may_be_ahead && slot == nullptr; }
    };

    void work();
    Slot* take_next();
    Slot* begin_another();
    bool is_worth_waking() const;
    void list(const NativePath& path, Listed& out) const;

    const NativeRoot& root_;
    const bool with_times_;
    std::vector<Pending> told_;
    Listed own_;
    Slot* asked_for_ = nullptr;  // what next() returned last
    bool was_started_ = false;

    platform::Mutex lock_;          // guards what follows
    std::vector<Pending> pending_;  // the last is next
    std::vector<std::unique_ptr<Slot>> slots_;
    std::vector<Slot*> free_;  // with room for all slots
    bool is_idle_ = false;
    bool is_stopping_ = false;

    platform::ConditionVariable has_work_;
    platform::ConditionVariable is_listed_;
    mt::CThread thread_;
};

}  // namespace fs

#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include <engine/kernel/multithreading.h>

#include "engine/filesystem/sources/directory/paths.h"
#include "engine/platform/directories.h"

namespace fs {

/// Lists the directories that a scan will reach next on a second thread, while the scan enters the names of those before.
/// The thread is started when there is enough to list and a core to run it on; without it the caller's thread lists
/// everything, with the same results.
///
/// Threads  one thread uses the object; the second one is its own.
class ListingAhead {
public:
    struct Listed {
        platform::DirectoryListing items;
        platform::DirectoryTimes times;  // as dir_listing keeps them; only where times are wanted
        bool is_complete = false;        // read to its end
    };

    ListingAhead(const NativeRoot& root, bool with_times) : root_(root), with_times_(with_times) {}
    ListingAhead(const ListingAhead&) = delete;
    ListingAhead& operator=(const ListingAhead&) = delete;
    ~ListingAhead();

    /// Tells of a subdirectory of `parent`, which ends in "/". False without memory.
    [[nodiscard]] bool expect(const NativePath& parent, std::string_view name, bool is_link);
    /// Lets those that were told of since the last time be listed, first told first and before all earlier ones. Each
    /// must then be asked for with next() or passed over with skip(), in that order.
    [[nodiscard]] bool release_expected();
    /// For links and what is too long to be entered.
    void skip() { take_next(); }
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
    struct Expected {
        std::string path;
        std::size_t root_length;
        bool may_be_ahead;  // links are looked at before they are entered, and over-long paths never are
        Slot* slot = nullptr;
    };

    static void run(void* self) { static_cast<ListingAhead*>(self)->work(); }
    void work();
    void start();
    Slot* take_next();
    bool is_done_or_awaited(Slot& slot, Slot*& other);
    Expected* find_work();
    Slot* begin(Expected& expected);
    void finish(Slot& slot);
    void wake_when_worth_it();
    void list(const NativePath& path, Listed& out) const;

    const NativeRoot& root_;
    const bool with_times_;
    std::vector<Expected> told_;
    Listed own_;
    Slot* asked_for_ = nullptr;  // what next() returned last

    std::mutex lock_;                 // guards what follows
    std::vector<Expected> expected_;  // the last is next
    std::vector<std::unique_ptr<Slot>> slots_;
    std::vector<Slot*> free_;  // with room for all slots
    Slot* awaited_ = nullptr;  // done_ is set when it is done
    bool is_idle_ = false;
    bool is_stopping_ = false;

    mt::CEvent work_{false};
    mt::CEvent done_{false};
    bool was_started_ = false;
    mt::CThread thread_;
};

}  // namespace fs

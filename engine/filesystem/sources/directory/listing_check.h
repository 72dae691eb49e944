#pragma once

#include <atomic>

#include <engine/kernel/multithreading.h>

#include "engine/filesystem/sources/directory/paths.h"
#include "engine/filesystem/sources/listing/listing.h"

namespace fs {

/// Holds a stored listing against the disk: whether every directory still has the times that were recorded. A long one is
/// checked on a second thread, so that it can be replayed meanwhile.
class ListingCheck {
public:
    /// Begins the check; root and listing must stay as they are until the object is gone.
    ListingCheck(const NativeRoot& root, const dir_listing& listing);
    ListingCheck(const ListingCheck&) = delete;
    ListingCheck& operator=(const ListingCheck&) = delete;

    /// Whether a directory was found changed so far.
    bool is_stale() const { return is_stale_.load(std::memory_order_relaxed); }
    /// The outcome; waits for it.
    bool is_current();

private:
    static void run(void* self) { static_cast<ListingCheck*>(self)->check(); }
    void check();
    bool holds() const;

    const NativeRoot& root_;
    const dir_listing& listing_;
    std::atomic<bool> is_stale_{false};
    mt::CThread thread_;  // joins when it goes
};

}  // namespace fs

#include "engine/filesystem/sources/directory/mount/replay.h"

#include <atomic>
#include <cstddef>
#include <thread>

#include <engine/kernel/multithreading.h>

#include "engine/filesystem/contract/normalize.h"
#include "engine/filesystem/sources/directory/mount/recorded.h"
#include "engine/platform/directories.h"

namespace fs {

namespace {

constexpr std::size_t worth_a_thread = std::size_t{64} << 10;  // bytes of the listing

/// Checks a stored listing against the disk: whether every directory still has the times that were recorded. A long one is
/// checked on a second thread, so that it can be replayed meanwhile.
class ListingCheck {
public:
    /// Begins the check; root and listing must stay as they are until the object is gone.
    ListingCheck(const NativeRoot& root, const dir_listing& listing, Checking checking)
        : root_(root), listing_(listing) {
        if (checking == Checking::NONE || !listing.is_stored()) return;
        const bool may_start = listing.bytes().size() >= worth_a_thread && std::thread::hardware_concurrency() > 1;
        const auto run = [](void* self) { static_cast<ListingCheck*>(self)->check(); };
        if (!may_start || !thread_.Start("fs listing", run, this)) check();
    }
    ListingCheck(const ListingCheck&) = delete;
    ListingCheck& operator=(const ListingCheck&) = delete;

    /// Whether a directory was found changed so far.
    bool is_stale() const { return is_stale_.load(std::memory_order_relaxed); }
    /// The outcome; waits for it.
    bool is_current() {
        thread_.Join();
        return !is_stale();
    }

private:
    void check() { is_stale_.store(!holds(), std::memory_order_relaxed); }

    bool holds() const {
        ListingReader reader(listing_);
        std::string_view text;
        platform::DirectoryTimes recorded;
        while (!reader.at_end()) {
            NativePath path;
            platform::DirectoryTimes times;
            if (!reader.read_directory(text, recorded) || recorded == dir_listing::untrusted_times) return false;
            if (!build_native_path(root_, text, {}, path)) return false;
            if (!platform::get_directory_times(path.at(root_), times) || times != recorded) return false;
            while (reader.at_file()) {
                if (!reader.read_file(text)) return false;
            }
        }
        return true;
    }

    const NativeRoot& root_;
    const dir_listing& listing_;
    std::atomic<bool> is_stale_{false};
    mt::CThread thread_;  // joins when it goes
};

}  // namespace

bool replay_listing(const DirectoryState& state, MountedNames& to, const dir_listing& listing, Checking checking) {
    ListingCheck check(state.native_root, listing, checking);
    to.table.reserve(listing.files(), listing.bytes().size());
    ListingReader reader(listing);
    std::string_view text;
    platform::DirectoryTimes times;
    while (!reader.at_end()) {
        if (check.is_stale() || !reader.read_directory(text, times)) return false;
        const std::uint32_t dir = to.table.intern_dir(text);
        while (reader.at_file()) {
            if (!reader.read_file(text)) return false;
            state.enter(to, dir, text);
        }
        state.make_node(to, to.table.dir_text(dir));
    }
    return check.is_current();
}

}  // namespace fs

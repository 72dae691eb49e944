#include "engine/filesystem/sources/directory/mount/replay.h"

#include <atomic>
#include <cstddef>
#include <thread>

#include <engine/kernel/multithreading.h>

#include "engine/filesystem/contract/path.h"
#include "engine/filesystem/sources/directory/mount/recorded.h"
#include "engine/platform/directories.h"

namespace fs {

namespace {

constexpr std::size_t worth_a_thread = std::size_t{64} << 10;  // bytes of the listing

/// Whether every directory still has the times that were recorded.
bool is_current(const NativeRoot& root, const dir_listing& listing) {
    ListingReader reader(listing);
    std::string_view text;
    platform::DirectoryTimes recorded;
    while (!reader.at_end()) {
        NativePath path;
        platform::DirectoryTimes times;
        if (!reader.read_directory(text, recorded) || recorded == dir_listing::untrusted_times) return false;
        if (!build_native_path(root, text, {}, path)) return false;
        if (!platform::get_directory_times(path.at(root), times) || times != recorded) return false;
        while (reader.at_file()) {
            if (!reader.read_file(text)) return false;
        }
    }
    return true;
}

}  // namespace

// A long listing is checked on a second thread while it is replayed.
bool replay_listing(const DirectoryState& state, MountedNames& to, const dir_listing& listing, Checking checking) {
    std::atomic<bool> is_stale{false};
    auto check = [&] { is_stale.store(!is_current(state.native_root, listing), std::memory_order_relaxed); };
    mt::CThread thread;  // joins when it goes
    if (checking == Checking::STORED && listing.is_stored()) {
        const bool may_start = listing.bytes().size() >= worth_a_thread && std::thread::hardware_concurrency() > 1;
        const auto run = [](void* work) { (*static_cast<decltype(check)*>(work))(); };
        if (!may_start || !thread.Start("fs listing", run, &check)) check();
    }
    to.table.reserve(listing.files(), listing.bytes().size());
    ListingReader reader(listing);
    std::string_view text;
    platform::DirectoryTimes times;
    while (!reader.at_end()) {
        if (is_stale.load(std::memory_order_relaxed) || !reader.read_directory(text, times)) return false;
        const std::uint32_t dir = to.table.intern_dir(text);
        while (reader.at_file()) {
            if (!reader.read_file(text)) return false;
            state.enter(to, dir, text);
        }
        state.make_node(to, to.table.dir_text(dir));
    }
    thread.Join();
    return !is_stale.load(std::memory_order_relaxed);
}

}  // namespace fs

#include "engine/filesystem/sources/directory/listing_check.h"

#include <cstddef>
#include <thread>

#include "engine/platform/directories.h"

namespace fs {

namespace {

constexpr std::size_t worth_a_thread = std::size_t{64} << 10;  // bytes of the listing

}  // namespace

ListingCheck::ListingCheck(const NativeRoot& root, const dir_listing& listing) : root_(root), listing_(listing) {
    const bool may_start = listing.bytes().size() >= worth_a_thread && std::thread::hardware_concurrency() > 1;
    if (!may_start || !thread_.Start("fs listing", run, this)) check();
}

bool ListingCheck::is_current() {
    thread_.Join();
    return !is_stale();
}

void ListingCheck::check() {
    if (!holds()) is_stale_.store(true, std::memory_order_relaxed);
}

bool ListingCheck::holds() const {
    ListingReader reader(listing_);
    ListingReader::Directory directory;
    while (!reader.at_end()) {
        NativePath path;
        platform::DirectoryTimes times;
        if (!reader.read_directory(directory) || !reader.skip_files(directory.files)) return false;
        if (directory.times == dir_listing::untrusted_times) return false;
        if (!build_native_path(root_, directory.dir, {}, path)) return false;
        if (!platform::get_directory_times(path.at(root_), times) || times != directory.times) return false;
    }
    return true;
}

}  // namespace fs

#include "engine/filesystem/sources/directory/mount/store.h"

#include <atomic>
#include <cinttypes>
#include <cstdio>
#include <new>
#include <utility>
#include <vector>

#include "engine/filesystem/contract/path.h"
#include "engine/platform/files.h"
#include "engine/platform/process.h"

// A listing is recorded when a directory source scans the disk, and stored under the cache directory; the next mount of
// the same path with the same flags replays it and reads no directory.
//
// It is trusted only while every directory that it holds has the time stamps that it had when it was recorded: whatever
// adds, removes or renames an item gives its directory new ones, and who puts the old one back leaves a trace in the
// other, where the file system keeps it. A stamp that was less than two seconds old at the recording is stored as
// untrusted, because a later change within the clock's step would not show. What leaves no stamp behind is not seen: what
// becomes of a link's target, the offline attribute.

namespace fs {

namespace {

constexpr FFSAddSourceFlags::ENUM scan_flags = FFSAddSourceFlags::RECURSIVE | FFSAddSourceFlags::MOUNT_PARENT;

std::uint64_t hash_of(std::string_view text) {
    std::uint64_t hash = 0xCBF29CE484222325u;  // FNV-1a
    for (const char c : text) hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001B3u;
    return hash;
}

bool write_whole(const std::string& path, const std::vector<std::uint8_t>& bytes) {
    platform::File file = platform::File::open(
        path.c_str(), {.access = platform::Access::WRITE, .disposition = platform::Disposition::TRUNCATE_OR_CREATE});
    return file.valid() && file.write(bytes.data(), bytes.size()) == bytes.size();
}

}  // namespace

ListingStore::ListingStore(std::string file, const char* source_path, FFSAddSourceFlags::ENUM flags)
    : file_(std::move(file)), source_path_(source_path), flags_(flags & scan_flags) {}

std::unique_ptr<ListingStore> ListingStore::open(const char* cache_dir, const char* below, const char* source_path,
                                                 FFSAddSourceFlags::ENUM flags) try {
    if ((flags & FFSAddSourceFlags::SKIP_LISTING_CACHE) != 0) return nullptr;
    const std::string folder = std::string(cache_dir) + below;
    if (!is_native_directory(folder.c_str())) return nullptr;
    char name[32];
    const std::string flags_text = std::to_string(static_cast<unsigned>(flags & scan_flags));
    std::snprintf(name, sizeof name, "/%016" PRIx64 ".fsc", hash_of(source_path + ('|' + flags_text)));
    std::unique_ptr<ListingStore> store(new ListingStore(folder + name, source_path, flags));
    store->load();
    return store;
} catch (const std::bad_alloc&) {
    return nullptr;
}

void ListingStore::load() {
    constexpr std::uint64_t limit = std::uint64_t{1} << 31;  // far beyond any tree; a larger file is no listing
    platform::File file = platform::File::open(file_.c_str(), {});
    const std::uint64_t size = file.valid() ? file.length() : limit;
    if (size >= limit) return;
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(size));
    if (file.read(bytes.data(), size) != size || !listing_.decode(key(), bytes)) listing_.clear();
}

// Written beside its place and renamed, so that a reader finds the old listing or the new one, whole.
void ListingStore::finish() try {
    // Nothing was recorded where the mount was replayed, or served in another way.
    if (listing_.is_stored() || listing_.is_empty() || !listing_.is_whole()) return;
    static std::atomic<unsigned> serial{0};
    const std::vector<std::uint8_t> bytes = listing_.encode(key());
    const std::string beside = file_ + "." + std::to_string(platform::process_id()) + "." +
                               std::to_string(serial.fetch_add(1, std::memory_order_relaxed));
    if (write_whole(beside, bytes) && platform::rename_path(beside.c_str(), file_.c_str())) return;
    platform::remove_file(beside.c_str());
} catch (const std::bad_alloc&) {  // the next mount scans the disk
}

}  // namespace fs

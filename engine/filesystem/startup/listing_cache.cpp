#include "engine/filesystem/startup/listing_cache.h"

#include <atomic>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>

#include <engine/filesystem/registry.h>

#include "engine/filesystem/sources/directory/paths.h"
#include "engine/filesystem/sources/listing/listing.h"
#include "engine/filesystem/sources/listing/listing_file.h"
#include "engine/platform/directories.h"
#include "engine/platform/files.h"
#include "engine/platform/process.h"

// A listing is recorded when a directory source scans the disk, and stored under the cache directory; the next mount of
// the same path with the same flags replays it and reads no directory.
//
// It is trusted only while every directory that it holds has the time stamp that it had when it was recorded: whatever
// adds, removes or renames an item gives its directory a new one. A stamp that was less than two seconds old at the
// recording is stored as untrusted, because a later change within the clock's step would not show. What leaves no stamp
// behind is not seen: a link that leads elsewhere, the offline attribute, a tool that puts the old stamp back.
//
// The store only saves time. Whatever goes wrong with it, silently, means that the disk is scanned.

namespace fs {

namespace {

#if defined(_WIN32)
constexpr const char* platform_name = "windows_x64";
#else
constexpr const char* platform_name = "linux_x64";
#endif

constexpr FFSAddSourceFlags::ENUM scan_flags = FFSAddSourceFlags::RECURSIVE | FFSAddSourceFlags::MOUNT_PARENT;

std::uint64_t hash_of(std::string_view text) {
    std::uint64_t hash = 0xCBF29CE484222325u;  // FNV-1a
    for (const char c : text) hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001B3u;
    return hash;
}

bool is_directory(const std::string& path) {
    const std::optional<platform::Attributes> attributes = platform::get_attributes(path.c_str());
    return attributes && attributes->is_directory;
}

bool read_whole(const char* path, PodArray<unsigned char>& out) {
    constexpr std::uint64_t limit = std::uint64_t{1} << 31;  // far beyond any tree; a larger file is no listing
    platform::File file = platform::File::open(path, {});
    if (!file.valid()) return false;
    const std::uint64_t size = file.length();
    if (size > limit || !out.reserve(static_cast<std::size_t>(size) + 1)) return false;
    return file.read(out.extend(static_cast<std::size_t>(size)), size) == size;
}

/// Whether every directory still has the time stamp that was recorded.
bool is_current(const dir_listing& listing, std::string_view source_path, bool mounts_parent) {
    NativeRoot root;
    std::string start;
    const std::string given = std::string(source_path) + '/';
    if (!open_native_root(given, {}, mounts_parent, root, start)) return false;
    ListingReader reader(listing);
    ListingReader::Directory directory;
    while (!reader.at_end()) {
        if (!reader.read_directory(directory) || !reader.skip_files(directory.files)) return false;
        NativePath path;
        std::int64_t time = 0;
        if (directory.time == dir_listing::untrusted_time || !build_native_path(root, directory.dir, {}, path)) {
            return false;
        }
        if (!platform::get_directory_time(path.at(root), time) || time != directory.time) return false;
    }
    return true;
}

class StoredListing final : public ListingCache {
public:
    StoredListing(std::string file, const char* source_path, FFSAddSourceFlags::ENUM flags)
        : file_(std::move(file)), flags_(flags & scan_flags) {
        PodArray<unsigned char> bytes;
        is_replayed_ = read_whole(file_.c_str(), bytes) &&
                       decode_listing(key(source_path), bytes.data(), bytes.size(), listing_) &&
                       is_current(listing_, source_path, (flags & FFSAddSourceFlags::MOUNT_PARENT) != 0);
        if (!is_replayed_) listing_.clear();
    }

    dir_listing* listing() override { return &listing_; }

    void finish(const char* source_path) override try {
        // Nothing was recorded where the mount was replayed, or served in another way.
        if (is_replayed_ || listing_.is_empty() || !listing_.is_whole()) return;
        PodArray<unsigned char> bytes;
        if (encode_listing(key(source_path), listing_, bytes)) store(bytes);
    } catch (const std::bad_alloc&) {
        // Without memory nothing is stored, and the next mount scans the disk.
    }

private:
    ListingKey key(const char* source_path) const { return {source_path, flags_}; }

    // Written beside its place and renamed, so that a reader finds the old listing or the new one, whole.
    void store(const PodArray<unsigned char>& bytes) const {
        static std::atomic<unsigned> serial{0};
        const std::string beside = file_ + "." + std::to_string(platform::process_id()) + "." +
                                   std::to_string(serial.fetch_add(1, std::memory_order_relaxed));
        platform::File file = platform::File::open(
            beside.c_str(), {.access = platform::Access::WRITE, .disposition = platform::Disposition::CREATE_ALWAYS});
        const bool written = file.valid() && file.write(bytes.data(), bytes.size()) == bytes.size();
        file.close();
        if (!written || !platform::rename_path(beside.c_str(), file_.c_str())) platform::remove_file(beside.c_str());
    }

    std::string file_;
    FFSAddSourceFlags::ENUM flags_;
    dir_listing listing_;
    bool is_replayed_ = false;
};

}  // namespace

std::unique_ptr<ListingCache> ListingCache::open(const char* source_path, FFSAddSourceFlags::ENUM flags) try {
    if ((flags & FFSAddSourceFlags::SKIP_LISTING_CACHE) != 0) return nullptr;
    const std::string folder = std::string(get_cache_dir()) + "filesystem/" + platform_name;
    if (!is_directory(folder)) return nullptr;
    char name[32];
    const std::string flags_text = std::to_string(static_cast<unsigned>(flags & scan_flags));
    std::snprintf(name, sizeof name, "/%016" PRIx64 ".fsc", hash_of(source_path + ('|' + flags_text)));
    return std::unique_ptr<ListingCache>(new (std::nothrow) StoredListing(folder + name, source_path, flags));
} catch (const std::bad_alloc&) {
    return nullptr;
}

}  // namespace fs

#include "engine/filesystem/sources/directory/listing.h"

#include <algorithm>
#include <atomic>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <new>
#include <thread>

#include <engine/kernel/multithreading.h>

#include "engine/filesystem/contract/path_text.h"
#include "engine/filesystem/sources/directory/state.h"
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
//
// Its bytes: directory after directory. A directory is a zero, its two times (8 bytes each), its text, ending in "/" unless
// it is empty, and the names of its files; a text or name ends with a zero. All are what a scan could have found: no name
// holds a separator or is empty, "." or "..", and no directory climbs or stands at the root of the disk. What stands before
// them in a file is described in docs/formats.md.

namespace fs {

namespace {

constexpr std::uint8_t magic[4] = {'F', 'S', 'C', 'L'};
constexpr std::uint32_t version = 3;
constexpr std::size_t checked_from = 12;                 // behind magic, version and checksum
constexpr std::size_t file_head = checked_from + 4 + 2;  // the source's path follows

constexpr FFSAddSourceFlags::ENUM scan_flags = FFSAddSourceFlags::RECURSIVE | FFSAddSourceFlags::MOUNT_PARENT;

// Looks at all of the text: every name of a stored listing comes here, and short loops without a way out are fast.
bool has_separator(std::string_view text) {
    bool found = false;
    for (const char c : text) found |= (c == '/') | (c == '\\');
    return found;
}

bool is_name(std::string_view text) { return !text.empty() && text != "." && text != ".." && !has_separator(text); }

bool is_directory(std::string_view text) {
    if (text.size() > platform::max_path_bytes) return false;
    while (!text.empty()) {
        const std::size_t end = text.find('/');
        if (end == std::string_view::npos || !is_name(text.substr(0, end))) return false;
        text.remove_prefix(end + 1);
    }
    return true;
}

/// Whether every directory still has the times that were recorded.
bool is_current(const NativeRoot& root, const dir_listing& listing) {
    const auto has_times = [&](std::string_view dir, const platform::DirectoryTimes& recorded) {
        NativePath path;
        platform::DirectoryTimes times;
        return recorded != dir_listing::untrusted_times && build_native_path(root, dir, {}, path) &&
               platform::get_directory_times(path.at(root), times) && times == recorded;
    };
    return listing.for_each(has_times, [](std::string_view) { return true; });
}

std::uint64_t hash_of(std::string_view text) {
    std::uint64_t hash = 0xCBF29CE484222325u;  // FNV-1a
    for (const char c : text) hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001B3u;
    return hash;
}

std::vector<std::uint8_t> read_whole(const char* path) {
    constexpr std::uint64_t limit = std::uint64_t{1} << 31;  // far beyond any tree; a larger file is no listing
    platform::File file = platform::File::open(path, {});
    const std::uint64_t size = file.valid() ? file.length() : limit;
    std::vector<std::uint8_t> bytes(size < limit ? static_cast<std::size_t>(size) : 0);
    if (file.valid() && file.read(bytes.data(), bytes.size()) != bytes.size()) bytes.clear();
    return bytes;
}

bool write_whole(const std::string& path, const std::vector<std::uint8_t>& bytes) {
    platform::File file = platform::File::open(
        path.c_str(), {.access = platform::Access::WRITE, .disposition = platform::Disposition::TRUNCATE_OR_CREATE});
    return file.valid() && file.write(bytes.data(), bytes.size()) == bytes.size();
}

}  // namespace

void dir_listing::add_directory(std::string_view dir, const platform::DirectoryTimes& times) {
    bytes_.resize(bytes_.size() + directory_head);
    std::uint8_t* const head = bytes_.data() + bytes_.size() - directory_head;
    kernel::store_u64(head + 1, static_cast<std::uint64_t>(times.written));
    kernel::store_u64(head + 9, static_cast<std::uint64_t>(times.changed));
    add_file(dir);
}

void dir_listing::add_file(std::string_view name) {
    bytes_.insert(bytes_.end(), name.begin(), name.end());
    bytes_.push_back(0);
}

std::vector<std::uint8_t> dir_listing::encode(const ListingKey& key) const {
    std::vector<std::uint8_t> out(file_head);
    out.reserve(file_head + key.source_path.size() + bytes_.size());
    std::memcpy(out.data(), magic, sizeof magic);
    kernel::store_u32(out.data() + 4, version);
    kernel::store_u32(out.data() + checked_from, key.flags);
    kernel::store_u16(out.data() + checked_from + 4, static_cast<std::uint16_t>(key.source_path.size()));
    out.insert(out.end(), key.source_path.begin(), key.source_path.end());
    out.insert(out.end(), bytes_.begin(), bytes_.end());
    kernel::store_u32(out.data() + 8, kernel::crc32(0, out.data() + checked_from, out.size() - checked_from));
    return out;
}

// The head must be the one that would be written for the same key and content. The checksum in it makes sure that what lies
// behind is, but for malice, what was written.
bool dir_listing::decode(const ListingKey& key, const std::vector<std::uint8_t>& bytes) {
    clear();
    std::vector<std::uint8_t> head = encode(key);
    if (bytes.size() < head.size()) return false;
    kernel::store_u32(head.data() + 8, kernel::crc32(0, bytes.data() + checked_from, bytes.size() - checked_from));
    if (!std::equal(head.begin(), head.end(), bytes.begin())) return false;
    bytes_.assign(bytes.begin() + static_cast<std::ptrdiff_t>(head.size()), bytes.end());
    is_stored_ = for_each([](std::string_view dir, const auto&) { return is_directory(dir); },
                          [&](std::string_view name) { return ++files_, is_name(name); });
    return is_stored_ || (clear(), false);
}

// A long listing is checked on a second thread while it is replayed.
bool replay_listing(const DirectoryState& state, MountedNames& to, const dir_listing& listing, Checking checking) {
    constexpr std::size_t worth_a_thread = std::size_t{64} << 10;  // bytes of the listing
    std::atomic<bool> is_stale{false};
    auto check = [&] { is_stale.store(!is_current(state.native_root, listing), std::memory_order_relaxed); };
    mt::CThread thread;  // joins when it goes
    if (checking == Checking::STORED && listing.is_stored()) {
        const bool may_start = listing.bytes() >= worth_a_thread && std::thread::hardware_concurrency() > 1;
        const auto run = [](void* work) { (*static_cast<decltype(check)*>(work))(); };
        if (!may_start || !thread.Start("fs listing", run, &check)) check();
    }
    to.table.reserve(listing.files(), listing.bytes());
    std::uint32_t dir = 0;
    const auto enter_directory = [&](std::string_view text, const platform::DirectoryTimes&) {
        dir = to.table.intern_dir(text);
        state.make_node(to.tree, to.table.dir_text(dir));
        return !is_stale.load(std::memory_order_relaxed);
    };
    const bool is_whole =
        listing.for_each(enter_directory, [&](std::string_view name) { return state.enter(to, dir, name), true; });
    thread.Join();
    return is_whole && !is_stale.load(std::memory_order_relaxed);
}

std::unique_ptr<ListingStore> ListingStore::open(const char* cache_dir, const char* below, const char* source_path,
                                                 FFSAddSourceFlags::ENUM flags) try {
    if ((flags & FFSAddSourceFlags::SKIP_LISTING_CACHE) != 0) return nullptr;
    const std::string folder = std::string(cache_dir) + below;
    if (!is_native_directory(folder.c_str())) return nullptr;
    auto store = std::make_unique<ListingStore>();
    store->source_path_ = source_path;
    store->flags_ = flags & scan_flags;
    char name[32];
    const std::string key_text = store->source_path_ + '|' + std::to_string(static_cast<unsigned>(store->flags_));
    std::snprintf(name, sizeof name, "/%016" PRIx64 ".fsc", hash_of(key_text));
    store->file_ = folder + name;
    (void)store->listing_.decode(store->key(), read_whole(store->file_.c_str()));
    return store;
} catch (const std::bad_alloc&) {
    return nullptr;
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

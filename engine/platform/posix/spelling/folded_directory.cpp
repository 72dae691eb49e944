#include "engine/platform/posix/spelling/folded_directory.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <array>
#include <atomic>
#include <cstring>
#include <ctime>
#include <list>
#include <mutex>
#include <new>
#include <unordered_map>
#include <utility>

#include "engine/platform/posix/descriptor.h"
#include "engine/platform/posix/system_error.h"

// Folded listings are kept, since a name that the disk does not hold is asked for again and again. A kept listing is
// used only while the directory's change time is the one it was read under, and it is kept only when a later change
// must show in that time. On older kernels time moves in ticks, and what changes within the tick in which we read leaves
// no trace: there the stamp must lie a few ticks back. Newer ones give the change after somebody looked a finer time of
// its own; a file system shows that it does so by a stamp that lies ahead of the clock of ticks.

namespace platform {
namespace {

constexpr std::size_t cache_size_bytes = 32u << 20;
constexpr std::size_t cache_listings = 4096;
// The coarsest kernel tick is 10 ms; a few of them also cover processors that disagree about the tick they are in.
constexpr std::int64_t settle_time_ns = 40'000'000;
// Stamps without a fraction come from file systems that count whole or even pairs of seconds.
constexpr std::int64_t coarse_settle_time_ns = 2'100'000'000;
// Where only ticks are told, a directory that changes all the time and takes this long to read is believed without trust
// for a while, so that reading it takes at most a fiftieth of the time. Else creating n files in it would take n * n.
constexpr std::int64_t long_reading_ns = 1'000'000;
constexpr std::int64_t readings_apart = 50;

struct Kept {
    DirectoryStamp stamp;
    FoldedDirectory names;
    std::int64_t read_at_ns = 0;  // of the steady clock
    std::int64_t reading_ns = 0;  // how long reading took
    bool provisional = false;     // the stamp is not trusted
    std::size_t counted = 0;      // bytes of `names` within the cache's sum
};

using Id = std::pair<std::uint64_t, std::uint64_t>;
struct IdHash {
    std::size_t operator()(const Id& id) const { return (id.first << 32 ^ id.second) * 0x9E3779B97F4A7C15u; }
};

struct Cache {
    std::list<Kept> kept;  // most recently used first
    std::unordered_map<Id, std::list<Kept>::iterator, IdHash> by_id;
    std::size_t size_bytes = 0;
};

struct CacheHolder {
    std::mutex lock;         // guards `cache` and what it points to; never held while the disk is asked
    Cache* cache = nullptr;  // made on first use and never freed: paths are resolved while the process ends, too
};
constinit CacheHolder holder;

/// Devices whose file system was seen to stamp finer than in ticks. When all places are taken the rest waits for ticks.
constinit std::array<std::atomic<std::uint64_t>, 16> fine_devices{};

bool is_fine(std::uint64_t device) {
    for (const auto& known : fine_devices) {
        const std::uint64_t value = known.load(std::memory_order_relaxed);
        if (value == device + 1) return true;
        if (value == 0) return false;
    }
    return false;
}

void learn_fine(std::uint64_t device) {
    for (auto& known : fine_devices) {
        std::uint64_t value = 0;
        if (known.compare_exchange_strong(value, device + 1, std::memory_order_relaxed) || value == device + 1) return;
    }
}

std::int64_t clock_ns(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<std::int64_t>(now.tv_sec) * 1'000'000'000 + now.tv_nsec;
}

/// `before` is the clock of ticks (which stamps files) as it was before the directory was looked at.
DirectoryStamp stamp_of(const struct stat& status, std::int64_t before) {
    const timespec& change = status.st_ctim;
    const std::int64_t change_ns = static_cast<std::int64_t>(change.tv_sec) * 1'000'000'000 + change.tv_nsec;
    const std::int64_t needed = change.tv_nsec == 0 ? coarse_settle_time_ns : settle_time_ns;
    bool trusted = before - change_ns >= needed;
    if (!trusted) {
        // Only a disk of this machine is stamped by the clock that we ask.
        const bool ahead_of_ticks = change_ns > clock_ns(CLOCK_REALTIME_COARSE);
        if (ahead_of_ticks && major(status.st_dev) != 0) learn_fine(status.st_dev);
        trusted = is_fine(status.st_dev);
    }
    return DirectoryStamp{.device = status.st_dev,
                          .inode = status.st_ino,
                          .seconds = change.tv_sec,
                          .nanoseconds = change.tv_nsec,
                          .trusted = trusted};
}

void drop(Cache& cache, std::list<Kept>::iterator entry) {
    cache.size_bytes -= entry->counted;
    cache.by_id.erase({entry->stamp.device, entry->stamp.inode});
    cache.kept.erase(entry);
}

void count(Cache& cache, Kept& entry) {
    cache.size_bytes += entry.names.size_bytes() - entry.counted;
    entry.counted = entry.names.size_bytes();
}

/// What is kept of the directory under exactly this stamp; null, and dropped, when it is out of date.
Kept* recall(const DirectoryStamp& stamp) {
    if (holder.cache == nullptr) return nullptr;
    Cache& cache = *holder.cache;
    const auto found = cache.by_id.find({stamp.device, stamp.inode});
    if (found == cache.by_id.end()) return nullptr;
    const auto entry = found->second;
    const bool stale =
        entry->provisional && clock_ns(CLOCK_MONOTONIC) - entry->read_at_ns > readings_apart * entry->reading_ns;
    if (stale || !entry->stamp.same(stamp)) {
        drop(cache, entry);
        return nullptr;
    }
    if (entry != cache.kept.begin()) cache.kept.splice(cache.kept.begin(), cache.kept, entry);
    return &*entry;
}

void keep(Kept&& kept) {
    const std::lock_guard hold(holder.lock);
    if (holder.cache == nullptr) holder.cache = new Cache;
    Cache& cache = *holder.cache;
    const Id id{kept.stamp.device, kept.stamp.inode};
    if (const auto old = cache.by_id.find(id); old != cache.by_id.end()) drop(cache, old->second);
    cache.kept.push_front(std::move(kept));
    count(cache, cache.kept.front());
    cache.by_id.emplace(id, cache.kept.begin());
    while (cache.kept.size() > 1 && (cache.kept.size() > cache_listings || cache.size_bytes > cache_size_bytes)) {
        drop(cache, std::prev(cache.kept.end()));
    }
}

/// Copies the spelling over `name`.
bool answer(const FoldedDirectory& names, char* name, std::size_t length) {
    const char* const held = names.find(name, length);
    if (held == nullptr) return false;
    std::memcpy(name, held, length);
    return true;
}

std::optional<Kept> read_listing(const char* path) {
    const Descriptor directory(
        retry_interrupted([&] { return ::open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK); }));
    if (!directory.valid()) return std::nullopt;
    const std::int64_t before = clock_ns(CLOCK_REALTIME_COARSE);
    const std::int64_t start = clock_ns(CLOCK_MONOTONIC);
    struct stat status;
    if (::fstat(directory.number(), &status) != 0) return std::nullopt;
    auto names = FoldedDirectory::read(directory.number());
    if (!names) return std::nullopt;
    const std::int64_t end = clock_ns(CLOCK_MONOTONIC);
    return Kept{
        .stamp = stamp_of(status, before), .names = std::move(*names), .read_at_ns = end, .reading_ns = end - start};
}

}  // namespace

bool stamp_directory(const char* path, DirectoryStamp& out) {
    const std::int64_t before = clock_ns(CLOCK_REALTIME_COARSE);
    struct stat status;
    if (::stat(path, &status) != 0) return false;
    out = stamp_of(status, before);
    if (S_ISDIR(status.st_mode)) return true;
    errno = ENOTDIR;
    return false;
}

bool find_spelling(const char* path, DirectoryStamp& stamp, char* name, std::size_t length) {
    if (stamp.inode == 0 && !stamp_directory(path, stamp)) return false;
    {
        const std::lock_guard hold(holder.lock);
        if (const Kept* const kept = recall(stamp); kept != nullptr) return answer(kept->names, name, length);
    }
    auto listing = read_listing(path);
    if (!listing) return false;
    stamp = listing->stamp;
    const bool found = answer(listing->names, name, length);
    listing->provisional = !stamp.trusted;
    if (stamp.trusted || listing->reading_ns >= long_reading_ns) keep(std::move(*listing));
    return found;
}

void note_created(const char* path, const DirectoryStamp& before, const char* name) try {
    DirectoryStamp after;
    if (!stamp_directory(path, after)) return;
    const std::lock_guard hold(holder.lock);
    Kept* const kept = recall(before);
    if (kept == nullptr) return;
    if (!after.trusted && kept->reading_ns < long_reading_ns) return;
    kept->names.add(name, std::strlen(name));
    count(*holder.cache, *kept);
    kept->stamp = after;
    kept->provisional = !after.trusted;
} catch (const std::bad_alloc&) {
    forget_directory(before);
}

void forget_directory(const DirectoryStamp& stamp) {
    const std::lock_guard hold(holder.lock);
    if (holder.cache == nullptr) return;
    const auto found = holder.cache->by_id.find({stamp.device, stamp.inode});
    if (found != holder.cache->by_id.end()) drop(*holder.cache, found->second);
}

}  // namespace platform

#include "engine/platform/posix/folded_directory.h"

#include <fcntl.h>

#include <ctime>
#include <list>
#include <mutex>
#include <new>
#include <unordered_map>

#include "engine/platform/folding.h"
#include "engine/platform/posix/descriptor.h"
#include "engine/platform/posix/directory_reader.h"

// Folded listings are kept, since a name that the disk does not hold is asked for again and again. A kept listing is
// used only while the directory's change time is the one it was read under, and it is kept only when that time lay far
// enough back: time stamps move in ticks, so what changes within the tick in which we read leaves no trace.

namespace platform {
namespace {

constexpr std::size_t cache_size_bytes = 32u << 20;
constexpr std::size_t cache_listings = 4096;
// The coarsest kernel tick is 10 ms; a few of them also cover processors that disagree about the tick they are in.
constexpr std::int64_t settle_time_ns = 40'000'000;
// Stamps without a fraction come from file systems that count whole or even pairs of seconds.
constexpr std::int64_t coarse_settle_time_ns = 2'100'000'000;

std::uint32_t folded_hash(const char* name, std::size_t length) {
    std::uint64_t hash = length;
    std::size_t i = 0;
    std::uint64_t word = 0;
    for (; i + 8 <= length; i += 8) {
        std::memcpy(&word, name + i, 8);
        hash = (hash ^ fold_word(word)) * 0x9E3779B97F4A7C15u;
        hash ^= hash >> 29;
    }
    word = 0;
    std::memcpy(&word, name + i, length - i);
    hash = (hash ^ fold_word(word)) * 0x9E3779B97F4A7C15u;
    return static_cast<std::uint32_t>(hash >> 32);
}

/// Whether `a` stands for a folded name rather than `b`, neither being the exact spelling.
bool is_preferred(const char* a, const char* b, std::size_t length) {
    const bool a_lower = !has_upper_case(a, length);
    if (a_lower != !has_upper_case(b, length)) return a_lower;
    return std::memcmp(a, b, length) < 0;
}

struct Kept {
    DirectoryStamp stamp;
    std::shared_ptr<const FoldedDirectory> names;
};
struct IdHash {
    std::size_t operator()(const std::pair<std::uint64_t, std::uint64_t>& id) const {
        return (id.first << 32 ^ id.second) * 0x9E3779B97F4A7C15u;
    }
};

struct Cache {
    std::list<Kept> kept;  // most recently used first
    std::unordered_map<std::pair<std::uint64_t, std::uint64_t>, std::list<Kept>::iterator, IdHash> by_id;
    std::size_t size_bytes = 0;
};

struct CacheHolder {
    std::mutex lock;         // guards `cache` and what it points to; never held while the disk is asked
    Cache* cache = nullptr;  // made on first use and never freed: paths are resolved while the process ends, too
};
constinit CacheHolder holder;

void drop(Cache& cache, std::list<Kept>::iterator entry) {
    cache.size_bytes -= entry->names->size_bytes();
    cache.by_id.erase({entry->stamp.device, entry->stamp.inode});
    cache.kept.erase(entry);
}

std::shared_ptr<const FoldedDirectory> recall(const DirectoryStamp& stamp) {
    const std::lock_guard hold(holder.lock);
    if (holder.cache == nullptr) return nullptr;
    Cache& cache = *holder.cache;
    const auto found = cache.by_id.find({stamp.device, stamp.inode});
    if (found == cache.by_id.end()) return nullptr;
    if (!found->second->stamp.same(stamp)) {
        drop(cache, found->second);
        return nullptr;
    }
    cache.kept.splice(cache.kept.begin(), cache.kept, found->second);
    return found->second->names;
}

void keep(const DirectoryStamp& stamp, const std::shared_ptr<const FoldedDirectory>& names) try {
    const std::lock_guard hold(holder.lock);
    if (holder.cache == nullptr) holder.cache = new Cache;
    Cache& cache = *holder.cache;
    const std::pair id{stamp.device, stamp.inode};
    if (const auto old = cache.by_id.find(id); old != cache.by_id.end()) drop(cache, old->second);
    cache.kept.push_front(Kept{.stamp = stamp, .names = names});
    cache.size_bytes += names->size_bytes();
    cache.by_id.emplace(id, cache.kept.begin());
    while (cache.kept.size() > 1 && (cache.kept.size() > cache_listings || cache.size_bytes > cache_size_bytes)) {
        drop(cache, std::prev(cache.kept.end()));
    }
} catch (const std::bad_alloc&) {
    // Then the listing is read again next time.
}

std::int64_t nanoseconds_of(const timespec& time) {
    return static_cast<std::int64_t>(time.tv_sec) * 1'000'000'000 + time.tv_nsec;
}

/// `now` was read before the directory was.
DirectoryStamp stamp_of(const struct stat& status, const timespec& now) {
    const timespec& change = status.st_ctim;
    const std::int64_t needed = change.tv_nsec == 0 ? coarse_settle_time_ns : settle_time_ns;
    return DirectoryStamp{.device = status.st_dev,
                          .inode = status.st_ino,
                          .seconds = change.tv_sec,
                          .nanoseconds = change.tv_nsec,
                          .settled = nanoseconds_of(now) - nanoseconds_of(change) >= needed};
}

timespec coarse_now() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME_COARSE, &now);  // the clock that stamps files
    return now;
}

}  // namespace

std::shared_ptr<const FoldedDirectory> FoldedDirectory::read(int directory) try {
    const auto names = std::make_shared<FoldedDirectory>();
    if (!read_directory(directory, [&](const DirectoryRecord&, const char* name) { names->add(name); })) return nullptr;
    names->index();
    return names;
} catch (const std::bad_alloc&) {
    errno = ENOMEM;
    return nullptr;
}

void FoldedDirectory::add(const char* name) {
    const std::size_t length = std::strlen(name);  // at most 255 bytes, says the kernel
    if (length > 255 || text_.size() > UINT32_MAX - 2 * 256) return;
    text_.push_back(static_cast<char>(length));
    text_.insert(text_.end(), name, name + length);
    ++count_;
}

void FoldedDirectory::index() {
    text_.shrink_to_fit();
    std::size_t slots = 16;
    while (slots < count_ * 2) slots *= 2;
    slots_.assign(slots, 0);
    for (std::size_t at = 0; at < text_.size();) {
        const std::size_t length = static_cast<unsigned char>(text_[at]);
        std::size_t slot = folded_hash(text_.data() + at + 1, length) & (slots - 1);
        while (slots_[slot] != 0) slot = (slot + 1) & (slots - 1);
        slots_[slot] = static_cast<std::uint32_t>(at + 1);
        at += 1 + length;
    }
}

const char* FoldedDirectory::find(const char* name, std::size_t length) const {
    if (slots_.empty()) return nullptr;
    const char* best = nullptr;
    const std::size_t mask = slots_.size() - 1;
    for (std::size_t slot = folded_hash(name, length) & mask; slots_[slot] != 0; slot = (slot + 1) & mask) {
        const char* const held = text_.data() + slots_[slot];
        if (static_cast<unsigned char>(held[-1]) != length || !equal_folded(held, name, length)) continue;
        if (std::memcmp(held, name, length) == 0) return held;
        if (best == nullptr || is_preferred(held, best, length)) best = held;
    }
    return best;
}

bool stamp_directory(const char* path, DirectoryStamp& out) {
    const timespec now = coarse_now();
    struct stat status;
    if (::stat(path, &status) != 0) return false;
    out = stamp_of(status, now);
    if (S_ISDIR(status.st_mode)) return true;
    errno = ENOTDIR;
    return false;
}

std::shared_ptr<const FoldedDirectory> folded_directory(const char* path, DirectoryStamp& stamp) {
    if (stamp.inode == 0 && !stamp_directory(path, stamp)) return nullptr;
    if (auto names = recall(stamp); names != nullptr) return names;
    const Descriptor directory(
        retry_interrupted([&] { return ::open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK); }));
    if (!directory.valid()) return nullptr;
    const timespec now = coarse_now();
    struct stat status;
    if (::fstat(directory.number(), &status) != 0) return nullptr;
    stamp = stamp_of(status, now);
    auto names = FoldedDirectory::read(directory.number());
    if (names != nullptr && stamp.settled) keep(stamp, names);
    return names;
}

}  // namespace platform

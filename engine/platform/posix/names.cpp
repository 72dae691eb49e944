#include "engine/platform/posix/names.h"

#include <fcntl.h>
#include <string.h>  // strnlen

#include <algorithm>
#include <chrono>
#include <cstring>
#include <new>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>

#include "engine/platform/linux/disk.h"

// The names of directories are found without regard to ASCII case. Listings are kept, since a name that the disk does not
// hold is asked for again and again. A failure is never kept: it tells nothing about the next question.

namespace platform {
namespace {

struct FoldedHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view name) const {
        std::uint64_t hash = name.size();
        for (const char c : name) hash = (hash ^ static_cast<unsigned char>(fold(c))) * 0x100000001B3u;
        return hash ^ hash >> 32;
    }
};
struct FoldedEqual {
    using is_transparent = void;
    bool operator()(std::string_view a, std::string_view b) const { return equal_folded(a, b); }
};
using Names = std::unordered_multiset<std::string, FoldedHash, FoldedEqual>;

/// Whether `a` stands for a folded name rather than `b`, neither being the exact spelling.
bool is_preferred(std::string_view a, std::string_view b) {
    const bool a_is_lower = !has_upper_case(a.data(), a.size());
    const bool b_is_lower = !has_upper_case(b.data(), b.size());
    return a_is_lower != b_is_lower ? a_is_lower : a < b;
}

Spelling find(const Names& names, char* name, std::size_t length) {
    const std::string_view asked(name, length);
    const std::string* best = nullptr;
    for (auto [at, end] = names.equal_range(asked); at != end; ++at) {
        if (*at == asked) return Spelling::EXISTS;
        if (best == nullptr || is_preferred(*at, *best)) best = &*at;
    }
    if (best == nullptr) return Spelling::NEW;
    std::memcpy(name, best->data(), length);
    return Spelling::EXISTS;
}

using Clock = std::chrono::steady_clock;

struct Kept {
    DirectoryStamp stamp;
    Names names;
    Clock::time_point believed_until;  // what matters when the stamp is not trusted
};

// The one rule of trust. A listing is used as long as the directory has the stamp under which it was read, and if that
// stamp is trusted: then any later change must show in it.
//
// Files are stamped by a clock that moves in ticks, and what changes within the tick in which we look leaves no trace;
// so a stamp is trusted when it lies a few ticks back. Newer kernels give a change that follows a look a time finer than
// ticks. Such a time lies ahead of the clock of ticks, and is trusted at once; but only a disk of this machine (which has
// a major number) is stamped by the clock that we ask.
//
// An untrusted listing that took long to read is used for a while all the same: else creating n files in a directory
// would read n * n names where only ticks are told.
constexpr std::int64_t few_ticks_ns = 40'000'000;        // the coarsest tick is 10 ms; processors may disagree about it
constexpr std::int64_t coarse_stamp_ns = 2'100'000'000;  // where stamps have no fraction and count pairs of seconds
constexpr std::chrono::milliseconds long_reading(1);
constexpr int belief_in_readings = 50;  // reading takes at most a fiftieth of the time

bool is_trusted(std::int64_t changed_ns, std::int64_t ticks_before, bool is_local) {
    const std::int64_t needed = changed_ns % 1'000'000'000 == 0 ? coarse_stamp_ns : few_ticks_ns;
    return ticks_before - changed_ns >= needed || (is_local && changed_ns > stamp_clock_ns());
}

bool is_usable(const Kept& kept, const DirectoryStamp& now) {
    const bool is_same = kept.stamp.id == now.id && kept.stamp.changed_ns == now.changed_ns;
    return is_same && (kept.stamp.is_trusted || Clock::now() < kept.believed_until);
}

/// When the bounds are reached everything is forgotten, and what is in use is read again.
constexpr std::size_t most_names = 300'000;
constexpr std::size_t most_listings = 4096;

struct IdHash {
    std::size_t operator()(const FileId& id) const { return (id.device << 32 ^ id.inode) * 0x9E3779B97F4A7C15u; }
};

struct Cache {
    Mutex lock;  // never held while the disk is asked
    std::unordered_map<FileId, Kept, IdHash> listings ENGINE_GUARDED_BY(lock);
    std::size_t names ENGINE_GUARDED_BY(lock) = 0;  // in all of them

    Kept* find(const DirectoryStamp& stamp) ENGINE_REQUIRES(lock) {
        const auto found = listings.find(stamp.id);
        if (found == listings.end()) return nullptr;
        if (is_usable(found->second, stamp)) return &found->second;
        erase(stamp.id);
        return nullptr;
    }
    void erase(const FileId& id) ENGINE_REQUIRES(lock) {
        const auto found = listings.find(id);
        if (found == listings.end()) return;
        names -= found->second.names.size();
        listings.erase(found);
    }
    void keep(Kept&& kept) ENGINE_REQUIRES(lock) {
        erase(kept.stamp.id);
        const std::size_t added = kept.names.size();
        if (listings.size() >= most_listings || names + added > most_names) {
            listings.clear();
            names = 0;
        }
        listings.emplace(kept.stamp.id, std::move(kept));
        names += added;
    }
};

// Paths are resolved while the process ends, too.
Cache& kept_listings() { return never_destroyed<Cache>(); }

DirectoryStamp stamp_of(const struct stat& status, std::int64_t ticks_before) {
    const std::int64_t changed = to_ns(status.st_ctim);
    return {.id = {.device = status.st_dev, .inode = status.st_ino},
            .changed_ns = changed,
            .is_trusted = is_trusted(changed, ticks_before, is_local_device(status.st_dev))};
}

/// False with errno set.
bool read_listing(const char* path, Kept& out) {
    if (const auto fault = fault_at(FaultPoint::LIST)) {
        errno = os_code_of(*fault);
        return false;
    }
    const Descriptor directory(
        retry_interrupted([&] { return ::open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK); }));
    if (!directory.valid()) return false;
    const std::int64_t ticks_before = stamp_clock_ns();
    const Clock::time_point start = Clock::now();
    struct stat status;
    if (::fstat(directory.number(), &status) != 0) return false;
    const auto add = [&](const DirectoryRecord&, const char* name) { out.names.emplace(name); };
    if (!read_directory(directory.number(), add)) return false;
    out.stamp = stamp_of(status, ticks_before);
    const Clock::duration reading = Clock::now() - start;
    if (reading >= long_reading) out.believed_until = start + (1 + belief_in_readings) * reading;
    return true;
}

/// Looks at the directory at `path`, a DirectoryPath, which the system takes for no file. Links are followed. False with
/// errno set when it cannot be looked at.
bool stamp_directory(const char* path, DirectoryStamp& out) {
    const std::int64_t ticks_before = stamp_clock_ns();
    struct stat status;
    if (::stat(path, &status) != 0) return false;
    out = stamp_of(status, ticks_before);
    return true;
}

/// Looks for `name` in the directory at `path` and gives it the spelling that is held there: the exact one, else the one
/// without upper-case letters, else the smallest by bytes. NEW: it holds none. UNKNOWN: it could not be read; errno says
/// why. `stamp` may hold what was just seen of the directory, and receives the stamp that the answer belongs to.
Spelling find_spelling(const char* path, DirectoryStamp& stamp, char* name, std::size_t length) {
    if (stamp.id.inode == 0 && !stamp_directory(path, stamp)) return Spelling::UNKNOWN;
    Cache& cache = kept_listings();
    {
        const LockGuard guard(cache.lock);
        if (const Kept* const kept = cache.find(stamp); kept != nullptr) return find(kept->names, name, length);
    }
    Kept listing;
    if (!read_listing(path, listing)) return Spelling::UNKNOWN;
    stamp = listing.stamp;
    const Spelling found = find(listing.names, name, length);
    if (!is_usable(listing, stamp)) return found;
    const LockGuard guard(cache.lock);
    cache.keep(std::move(listing));
    return found;
}

/// What is kept of this directory has turned out wrong.
void forget_directory(const DirectoryStamp& stamp) {
    Cache& cache = kept_listings();
    const LockGuard guard(cache.lock);
    cache.erase(stamp.id);
}

/// This process has just added `name` to the directory at `path`, whose stamp was `before`, and taken `gone` from it unless
/// that is empty: what is kept of it stays good. Without this, each of many files that are created one after another would
/// have the directory read anew.
void note_created(const char* path, const DirectoryStamp& before, std::string_view name, std::string_view gone) try {
    DirectoryStamp after;
    if (!stamp_directory(path, after)) return;
    Cache& cache = kept_listings();
    const LockGuard guard(cache.lock);
    Kept* const kept = cache.find(before);
    if (kept == nullptr) return;
    kept->names.emplace(name);
    ++cache.names;
    const auto [first, last] = kept->names.equal_range(gone);
    if (const auto old = std::find(first, last, gone); old != last) {
        kept->names.erase(old);
        --cache.names;
    }
    kept->stamp = after;
} catch (const std::bad_alloc&) {
    forget_directory(before);
}

constinit Mutex creation_lock;  // held while a Creation lives; the lock of the kept listings is taken inside it

std::size_t start_of_last(const char* path, std::size_t length) {
    return std::string_view(path, length).rfind('/') + 1;
}

/// Where the component before the slashes that end at `end` begins.
std::size_t start_of_previous(const char* path, std::size_t end) {
    while (end > 0 && path[end - 1] == '/') --end;
    return start_of_last(path, end);
}

bool is_absence(int os_code) { return failure_of(os_code) == Failure::NOT_FOUND; }

/// How much of the path exists as given: all of [0, length) most of the time, which one look tells. `stamp` is that of
/// this directory.
bool find_existing(const char* path, std::size_t& length, DirectoryStamp& stamp) {
    while (length > 0 && !stamp_directory(DirectoryPath(path, length).text, stamp)) {
        if (!is_absence(errno)) return false;
        length = start_of_previous(path, length);
    }
    return true;
}

}  // namespace

Spelling spell_path(char* path, DirectoryStamp* directory) try {
    const std::size_t length = std::strlen(path);
    std::size_t begin = start_of_last(path, length);
    DirectoryStamp stamp;
    if (!find_existing(path, begin, stamp)) return Spelling::UNKNOWN;
    while (begin < length) {
        std::size_t end = begin;
        while (end < length && path[end] != '/') ++end;
        if (end > begin && !is_dots({path + begin, end - begin})) {
            const Spelling found = find_spelling(DirectoryPath(path, begin).text, stamp, path + begin, end - begin);
            if (found == Spelling::UNKNOWN && !is_absence(errno)) return Spelling::UNKNOWN;
            if (directory != nullptr) *directory = stamp;
            if (found == Spelling::NEW && end == length) return Spelling::NEW;
            if (found != Spelling::EXISTS) return Spelling::MISSING;
        }
        stamp = DirectoryStamp{};
        begin = end + 1;
    }
    return Spelling::EXISTS;
} catch (const std::bad_alloc&) {
    errno = ENOMEM;
    return Spelling::UNKNOWN;
}

bool find_other_spelling(const char* path, char (&out)[path_buffer_size]) {
    errno = ENAMETOOLONG;
    if (!copy_path(path, out)) return false;
    const Spelling spelling = spell_path(out);
    if (spelling == Spelling::EXISTS) return true;
    if (spelling != Spelling::UNKNOWN) errno = ENOENT;
    return false;
}

bool check_path(const char* path) {
    if (path == nullptr || *path == '\0') return fail(Failure::INVALID_NAME);
    if (strnlen(path, path_buffer_size) > max_path_bytes) return fail(Failure::PATH_TOO_LONG);
    return true;
}

bool copy_path(const char* path, char (&out)[path_buffer_size]) {
    if (!check_path(path)) return false;
    std::size_t length = std::strlen(path);
    while (length > 1 && path[length - 1] == '/') --length;
    std::memcpy(out, path, length);
    out[length] = '\0';
    return true;
}

const char* last_component(const char* path) { return path + start_of_last(path, std::strlen(path)); }

DirectoryPath::DirectoryPath(const char* path, std::size_t length) {
    if (length == 0) return;
    std::memcpy(text, path, length);
    text[length] = '\0';
}

DirectoryPath::DirectoryPath(const char* path) : DirectoryPath(path, start_of_last(path, std::strlen(path))) {}

bool find_entry(const char* path, Entry& out) {
    if (!copy_path(path, out.path)) return false;
    const auto look = [&] { return ::lstat(out.path, &out.status) == 0; };
    if (look()) return true;
    if (errno != ENOENT) return fail_os(errno);
    return (find_other_spelling(path, out.path) && look()) || fail_os(errno);
}

Creation::Creation(const char* path) : turn_(creation_lock) {
    if (look_up(path)) return;
    // A name that was renamed away by this process; what is kept of the directory still has it.
    forget_directory(directory_);
    look_up(path);
}

/// False when the name that was found is gone.
bool Creation::look_up(const char* path) {
    spelling_ = Spelling::UNKNOWN;
    os_code_ = ENAMETOOLONG;
    if (!copy_path(path, path_)) return true;
    spelling_ = spell_path(path_, &directory_);
    os_code_ = spelling_ == Spelling::UNKNOWN ? errno : 0;
    struct stat status;
    return spelling_ != Spelling::EXISTS || ::lstat(path_, &status) == 0 || errno != ENOENT;
}

bool Creation::check_new() const {
    if (spelling_ == Spelling::UNKNOWN) return fail_os(os_code_);
    if (spelling_ == Spelling::MISSING) return fail(Failure::NOT_FOUND, ENOENT);
    if (spelling_ == Spelling::EXISTS) return fail(Failure::ALREADY_EXISTS, EEXIST);
    const char* const name = last_component(path_);
    return is_valid_name(name, std::strlen(name)) || fail(Failure::INVALID_NAME);
}

bool Creation::done(const char* old_path) const {
    DirectoryStamp left;
    const bool is_within =
        old_path != nullptr && stamp_directory(DirectoryPath(old_path).text, left) && left.id == directory_.id;
    note_created(DirectoryPath(path_).text, directory_, last_component(path_),
                 is_within ? last_component(old_path) : "");
    return true;
}

}  // namespace platform

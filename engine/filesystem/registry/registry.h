#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <engine/filesystem/contract/names.h>
#include <engine/filesystem/contract/source.h>
#include <engine/kernel/multithreading.h>

namespace fs::registry {

/// All that the registry keeps. There is one for the process; it is never destroyed, so that late callers find it.
struct State {
    mt::CSlimLock lock;                               // guards sources, fallback and index
    std::vector<std::unique_ptr<CFSSource>> sources;  // in asking order
    std::unique_ptr<CFSSource> fallback;  // asked after all others, never compared and never removed by itself
    std::vector<CFSSource*> creators;     // those of `sources` added with WRITE_HERE, the newest last
    fs::dir index;                        // every directory of the sources that are indexed, and of created files
    char cache_dir[path_capacity] = "";   // written by fs::init alone, before others run
    std::atomic<bool> initialized{false};
    std::atomic<bool> read_membuffer{false};

    bool empty() const { return sources.empty() && fallback == nullptr; }
};

State& state();

/// Whether this is the source that is asked after all others.
inline bool is_fallback(const CFSSource* source) { return source == state().fallback.get(); }

/// Whether the calling thread holds the lock in any form, or asks a source without it. While it does, no message of its may
/// start the crash start-up, which opens a file and may create it.
bool this_thread_holds_lock();

/// Locks the registry shared for as long as it lives. A thread that holds the lock already passes: a source may ask fs::
/// for a name while it is being asked itself.
class SharedGuard {
public:
    SharedGuard();
    SharedGuard(const SharedGuard&) = delete;
    SharedGuard& operator=(const SharedGuard&) = delete;
    ~SharedGuard();
};

/// Marks the thread, for as long as it lives, as one that asks a pinned source without the lock. What the source calls may
/// change as little as if the lock were held: removing the source would wait for the thread's own pin.
class UnlockedAsking {
public:
    UnlockedAsking();
    UnlockedAsking(const UnlockedAsking&) = delete;
    UnlockedAsking& operator=(const UnlockedAsking&) = delete;
    ~UnlockedAsking();
};

/// Locks the registry exclusive for as long as it lives. A thread that holds the lock already would wait for itself; it
/// gets StoredFailure instead.
class ExclusiveGuard {
public:
    ExclusiveGuard();
    ExclusiveGuard(const ExclusiveGuard&) = delete;
    ExclusiveGuard& operator=(const ExclusiveGuard&) = delete;
    ~ExclusiveGuard();
};

struct PinCount {
    std::size_t pins = 0;
    std::atomic<bool> going{false};
};

/// While a pin stands, its source is not destroyed: whoever removes it waits. Empty or of one source.
class Pin {
public:
    Pin() = default;
    /// With the registry's lock held in any form, which keeps the source in the list. Throws std::bad_alloc.
    explicit Pin(CFSSource& source);
    Pin(Pin&& other) noexcept : count_(std::exchange(other.count_, nullptr)) {}
    Pin& operator=(Pin&& other) noexcept;
    ~Pin() { Drop(); }

    void Drop() noexcept;
    bool IsEmpty() const noexcept { return count_ == nullptr; }
    /// Whether somebody waits for the pin to be dropped, since the source was removed.
    bool IsSourceGoing() const noexcept {
        return count_ != nullptr && count_->second.going.load(std::memory_order_acquire);
    }
    bool Holds(const CFSSource& source) const noexcept { return count_ != nullptr && count_->first == &source; }

private:
    std::pair<const CFSSource* const, PinCount>* count_ = nullptr;
};

/// Called with a source that was taken out of the list, before its pins are waited for.
using RemovalHook = void (*)(CFSSource& source);
void set_removal_hook(RemovalHook hook);

/// What a source has whose names all begin alike: new files of other names are none of its business. A source class derives
/// from it besides CFSSource.
class PrefixedNames {
public:
    /// In lower case, ending in "/".
    virtual std::string_view prefix() const = 0;

protected:
    ~PrefixedNames() = default;
};

// What follows is called with the lock held: shared to look, exclusive to change. What changes throws std::bad_alloc
// before it has changed anything.

/// The first source, in asking order and the fallback included, for which `wanted(source)` is true; null when none is.
template <typename Predicate>
CFSSource* first_source(Predicate wanted) {
    const State& state = registry::state();
    for (const auto& source : state.sources) {
        if (wanted(*source)) return source.get();
    }
    return state.fallback != nullptr && wanted(*state.fallback) ? state.fallback.get() : nullptr;
}

template <typename Visitor>
void for_each_source(Visitor visit) {
    first_source([&](CFSSource& source) {
        visit(source);
        return false;
    });
}

/// The source whose path equals `path`; null when there is none. The fallback is not compared.
CFSSource* find(const fs::path& path);
/// Puts a source where its type, BEFORE_PACKS and AFTER_SAME_TYPE say, and its names into the index when `flags` hold
/// INDEX_NAMES.
void insert(std::unique_ptr<CFSSource> source, FFSAddSourceFlags::ENUM flags);
/// Puts a root behind all sources there are, or where BEFORE_PACKS among its flags says, and a fallback (which may be null)
/// behind everything.
void append_root(std::unique_ptr<CFSSource> root, std::unique_ptr<CFSSource> fallback);
/// The source that makes what nobody holds in this directory (full names in the caller's case, ending in "/"): the newest
/// WRITE_HERE, else the first that is no overlay, else the first. Null when there is none.
CFSSource* creator(std::string_view directory);
/// Makes the index anew from the trees of all indexed sources in asking order.
void rebuild_index();

/// The directory of a file that is about to be made, for the index to take over when it is there.
void prepare_directory(const fs::path& file, fs::dir& out);
/// The directories of the index at and below `dir`, each behind the one that it lies in.
std::vector<std::string> indexed_directories(std::string_view dir);
/// Takes those of `directories` out of the index that no indexed source has any more. Never throws.
void forget_directories(const std::vector<std::string>& directories);

/// The directory `dir` (as names of the source spell it) in the source's tree; null when it has none of that name.
fs::dir* find_directory(CFSSource& source, const char* dir);

/// "TYPE_PLS" and so on; "" for a number that is no type.
const char* type_name(EFSSourceType::TYPE type);

/// Registers a source without asking for the lock beforehand, and logs it; one that is registered already stays once.
/// False, with the failure stored and the source destroyed, when there is no memory.
bool add(std::unique_ptr<CFSSource> source, FFSAddSourceFlags::ENUM flags);

/// Takes the source that `find()` answers, which is asked under the lock that this takes, out of list and index, and waits
/// until nobody has a pin on it. Null when that is none, not registered, or the fallback.
std::unique_ptr<CFSSource> take_out(const std::function<CFSSource*()>& find);

/// Empties list and index, and destroys every source, the fallback too, when its pins are dropped. Takes the lock.
void destroy_all();

}  // namespace fs::registry

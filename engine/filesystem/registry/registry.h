#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <shared_mutex>

#include <engine/filesystem/contract/names.h>
#include <engine/filesystem/contract/source.h>
#include <engine/kernel/multithreading.h>

namespace fs::registry {

struct Node {
    CFSSource* source = nullptr;  // owned
    Node* next = nullptr;
    Node* previous = nullptr;
};

inline constexpr std::size_t cache_dir_capacity = 272;

/// All that the registry keeps. There is one for the process; it is never destroyed, so that late callers find it.
struct State {
    mt::CSlimLock lock;  // guards the list, its count, the end marker and the index
    Node* head = nullptr;
    Node* tail = nullptr;
    Node* end_marker = nullptr;  // the fallback's node: always last, never compared and never removed by itself
    std::uint32_t count = 0;
    fs::dir index;                            // every directory of the sources that are indexed, and of created files
    char cache_dir[cache_dir_capacity] = "";  // written by fs::init alone, before others run
    std::atomic<bool> initialized{false};
    std::atomic<bool> read_membuffer{false};
};

State& state();

/// Whether the calling thread holds the lock in any form. While it does, nothing that it calls may ask for the lock
/// again: so no message of its may start the crash start-up, which opens a file.
bool this_thread_holds_lock();

/// Counts among the calling thread's holds of the lock.
class HoldCount {
public:
    HoldCount();
    ~HoldCount();
    HoldCount(const HoldCount&) = delete;
    HoldCount& operator=(const HoldCount&) = delete;
};

/// Has the lock shared for as long as it lives. Nested in one thread it only counts: a waiting writer would otherwise
/// stand between a thread and itself.
class SharedHold {
public:
    explicit SharedHold(State& state) : lock_(this_thread_holds_lock() ? Lock() : Lock(state.lock)) {}

private:
    using Lock = std::shared_lock<mt::CSlimLock>;
    Lock lock_;
    HoldCount count_;
};

/// Has the lock alone for as long as it lives. Never nested in another.
class ExclusiveHold {
public:
    explicit ExclusiveHold(State& state) : lock_(state.lock) {}

private:
    std::unique_lock<mt::CSlimLock> lock_;
    HoldCount count_;
};

// What follows is called with the lock held: shared to look, exclusive to change.

/// The first source, in asking order and the fallback included, for which `wanted(source)` is true; null when none is.
template <typename Predicate>
CFSSource* first_source(const State& state, Predicate wanted) {
    for (const Node* node = state.head; node != nullptr; node = node->next) {
        if (wanted(*node->source)) return node->source;
    }
    return nullptr;
}

template <typename Visitor>
void for_each_source(const State& state, Visitor visit) {
    for (const Node* node = state.head; node != nullptr; node = node->next) visit(*node->source);
}

/// Puts a source where its type and AFTER_SAME_TYPE say, and its names into the index. False without memory.
bool insert(State& state, CFSSource& source, FFSAddSourceFlags::ENUM flags);
/// Puts a source at the very end, whatever its type. Null without memory.
Node* append(State& state, CFSSource& source);
/// Merges the source's tree into the index when its own flags hold INDEX_NAMES.
void index_source(State& state, CFSSource& source);
/// The node, before the end marker, of the source whose path equals `path`; null when there is none.
Node* find(const State& state, const fs::path& path);
/// Takes the node out and frees it; the source stays.
CFSSource* unlink(State& state, Node* node);
void empty_index(State& state);
/// Empties the index and merges the trees of all indexed sources in asking order.
void rebuild_index(State& state);
/// Destroys every source, the fallback too, and empties list and index.
void destroy_all(State& state);

/// The directory `dir` (as names of the source spell it) in the source's tree; null when it has none of that name.
fs::dir* find_directory(CFSSource& source, const char* dir);

/// "TYPE_PLS" and so on; "" for a number that is no type.
const char* type_name(EFSSourceType::TYPE type);

}  // namespace fs::registry

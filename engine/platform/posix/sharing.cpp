// The table of open files, and the locks of flock for other processes.
#include "engine/platform/posix/sharing.h"

#include <pthread.h>
#include <sys/file.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <new>
#include <vector>

#include "engine/platform/posix/system.h"
#include "engine/platform/threads.h"

namespace platform {
namespace {

struct Use {
    FileId id;
    std::uint32_t readers = 0;  // 0: exclusive
};

/// Every open and close of the library passes here, so the table is split by file.
struct alignas(64) Shard {
    Mutex lock;
    std::vector<Use> uses ENGINE_GUARDED_BY(lock);

    Use* find(const FileId& id) ENGINE_REQUIRES(lock) {
        const auto found = std::find_if(uses.begin(), uses.end(), [&](const Use& use) { return use.id == id; });
        return found != uses.end() ? &*found : nullptr;
    }
};

constexpr std::size_t shard_bits = 8;
struct Table {
    std::array<Shard, 1u << shard_bits> shards;
    std::atomic<std::uint64_t> removals{0};
    std::atomic<std::uint32_t> forks{0};
    std::atomic<bool> may_have_children{false};

    Table();
};

// Files may be closed while the process ends.
Table& table() { return never_destroyed<Table>(); }

Table::Table() {
    ::pthread_atfork([] { table().may_have_children = true; }, nullptr, [] { ++table().forks; });
}

Shard& shard_of(const FileId& id) {
    const std::uint64_t mixed = (id.inode ^ id.device << 32) * 0x9E3779B97F4A7C15u;
    return table().shards[mixed >> (64 - shard_bits)];
}

}  // namespace

bool acquire_share(const FileId& id, bool exclusive) try {
    Shard& shard = shard_of(id);
    const LockGuard guard(shard.lock);
    if (Use* const use = shard.find(id); use != nullptr) {
        if (exclusive || use->readers == 0) return fail(Failure::IN_USE);
        ++use->readers;
        return true;
    }
    shard.uses.push_back(Use{.id = id, .readers = exclusive ? 0u : 1u});
    return true;
} catch (const std::bad_alloc&) {
    return fail(Failure::OUT_OF_MEMORY, ENOMEM);
}

void release_share(const FileId& id, bool exclusive) {
    Shard& shard = shard_of(id);
    const LockGuard guard(shard.lock);
    Use* const use = shard.find(id);
    if (use == nullptr) return;
    if (!exclusive && --use->readers > 0) return;
    *use = shard.uses.back();
    shard.uses.pop_back();
}

bool lock_file(int descriptor, bool exclusive) {
    if (meets_fault(FaultPoint::LOCK)) return false;
    const int operation = (exclusive ? LOCK_EX : LOCK_SH) | LOCK_NB;
    return retry_interrupted([&] { return ::flock(descriptor, operation); }) == 0 || errno != EWOULDBLOCK ||
           fail_os(errno);
}

void unlock_file(int descriptor, bool exclusive, std::uint32_t forks) {
    const bool is_shared = exclusive || table().may_have_children.load(std::memory_order_relaxed);
    if (is_shared && forks == fork_count()) ::flock(descriptor, LOCK_UN);
}

std::uint32_t fork_count() { return table().forks.load(std::memory_order_relaxed); }

std::uint64_t removal_count() { return table().removals.load(std::memory_order_acquire); }

void count_removal() { table().removals.fetch_add(1, std::memory_order_release); }

}  // namespace platform

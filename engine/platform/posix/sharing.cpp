#include "engine/platform/posix/sharing.h"

#include <atomic>
#include <cstdlib>
#include <mutex>

// Every open and close of the library passes here, so the table is split by file: a shard is one cache line with a
// mutex of its own and a short unordered array. Its memory is never given back, since files may be closed while the
// process ends.

namespace platform {
namespace {

struct Holder {
    FileKey key;
    std::uint32_t readers = 0;  // 0: held exclusively, since nothing unheld stays in the table
};

struct alignas(64) Shard {
    std::mutex lock;  // guards what follows
    Holder* holders = nullptr;
    std::uint32_t count = 0;
    std::uint32_t capacity = 0;
};

constexpr std::size_t shard_bits = 8;
struct Table {
    Shard shards[1u << shard_bits];
    std::atomic<std::uint64_t> removals{0};
};
constinit Table table;

Shard& shard_of(const FileKey& key) {
    const std::uint64_t mixed = (key.inode ^ key.device << 32) * 0x9E3779B97F4A7C15u;
    return table.shards[mixed >> (64 - shard_bits)];
}

Holder* find(Shard& shard, const FileKey& key) {
    for (std::uint32_t i = 0; i < shard.count; ++i) {
        if (shard.holders[i].key == key) return &shard.holders[i];
    }
    return nullptr;
}

bool grow(Shard& shard) {
    const std::uint32_t capacity = shard.capacity == 0 ? 8 : shard.capacity * 2;
    void* const memory = std::realloc(shard.holders, capacity * sizeof(Holder));
    if (memory == nullptr) return false;
    shard.holders = static_cast<Holder*>(memory);
    shard.capacity = capacity;
    return true;
}

}  // namespace

bool acquire_share(const FileKey& key, bool exclusive) {
    Shard& shard = shard_of(key);
    const std::lock_guard hold(shard.lock);
    if (Holder* const holder = find(shard, key); holder != nullptr) {
        if (exclusive || holder->readers == 0) return false;
        ++holder->readers;
        return true;
    }
    if (shard.count == shard.capacity && !grow(shard)) return false;
    shard.holders[shard.count++] = Holder{.key = key, .readers = exclusive ? 0u : 1u};
    return true;
}

void release_share(const FileKey& key, bool exclusive) {
    Shard& shard = shard_of(key);
    const std::lock_guard hold(shard.lock);
    Holder* const holder = find(shard, key);
    if (holder == nullptr) return;
    if (!exclusive && --holder->readers > 0) return;
    *holder = shard.holders[--shard.count];
}

std::uint64_t removal_count() { return table.removals.load(std::memory_order_acquire); }

void count_removal() { table.removals.fetch_add(1, std::memory_order_release); }

}  // namespace platform

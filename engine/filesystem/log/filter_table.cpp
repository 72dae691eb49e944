#include "engine/filesystem/log/filter_table.h"

#include <memory>
#include <mutex>
#include <new>

#include "engine/platform/never_destroyed.h"

namespace logging {

constinit FilterTable filter_table;

namespace {

// A change takes nanoseconds; a reader that is disturbed this often goes on with what it read last.
constexpr int read_attempts = 64;

std::uint32_t next_capacity(std::uint32_t capacity, std::uint32_t needed) {
    const std::uint64_t grown = ((static_cast<std::uint64_t>(capacity) * 10 >> 3) + 16) & ~std::uint64_t{15};
    return grown > needed ? static_cast<std::uint32_t>(grown) : needed;
}

/// One changer at a time, of any table.
std::mutex& change_lock() {
    static platform::NeverDestroyed<std::mutex> lock;
    return lock.value;
}

}  // namespace

void FilterTable::copy_entries(Entry* to) const {
    const Entry* const from = entries_.load(std::memory_order_relaxed);
    for (std::uint32_t i = 0; i < count_.load(std::memory_order_relaxed); ++i) {
        to[i].mask.store(from[i].mask.load(std::memory_order_relaxed), std::memory_order_relaxed);
        to[i].value.store(from[i].value.load(std::memory_order_relaxed), std::memory_order_relaxed);
        to[i].action.store(from[i].action.load(std::memory_order_relaxed), std::memory_order_relaxed);
    }
}

bool FilterTable::reserve(std::uint32_t count) {
    if (count <= capacity_) return true;
    const std::uint32_t capacity = next_capacity(capacity_, count);
    std::unique_ptr<Entry[]> larger(new (std::nothrow) Entry[capacity]());
    if (larger == nullptr) return false;
    if (capacity_ != 0) {
        Outgrown* const node = new (std::nothrow) Outgrown{entries_.load(std::memory_order_relaxed), outgrown_};
        if (node == nullptr) return false;
        outgrown_ = node;
    }
    copy_entries(larger.get());
    entries_.store(larger.release(), std::memory_order_release);
    capacity_ = capacity;
    return true;
}

void FilterTable::clear() {
    const std::lock_guard guard(change_lock());
    count_.store(0, std::memory_order_release);
}

void FilterTable::add(std::uint32_t value, std::uint32_t mask, std::uint32_t action) {
    const std::lock_guard guard(change_lock());
    const std::uint32_t count = count_.load(std::memory_order_relaxed);
    if (!reserve(count + 1)) return;
    changes_.fetch_add(1, std::memory_order_acq_rel);
    Entry& entry = entries_.load(std::memory_order_relaxed)[count];
    entry.mask.store(mask, std::memory_order_release);
    entry.value.store(value, std::memory_order_release);
    entry.action.store(action, std::memory_order_release);
    count_.store(count + 1, std::memory_order_release);
    changes_.fetch_add(1, std::memory_order_release);
}

std::uint32_t FilterTable::update(std::uint32_t value, std::uint32_t action) {
    const std::lock_guard guard(change_lock());
    Entry* const entries = entries_.load(std::memory_order_relaxed);
    for (std::uint32_t i = 0; i < count_.load(std::memory_order_relaxed); ++i) {
        if (entries[i].value.load(std::memory_order_relaxed) != value) continue;
        return entries[i].action.exchange(action, std::memory_order_acq_rel);
    }
    return 0;
}

std::uint32_t FilterTable::actions_once(std::uint32_t id) const {
    // The count comes first: storage read after it holds at least as many entries.
    const std::uint32_t count = count_.load(std::memory_order_acquire);
    const Entry* const entries = entries_.load(std::memory_order_acquire);
    std::uint32_t joined = 0;
    for (std::uint32_t i = 0; i < count; ++i) {
        const std::uint32_t mask = entries[i].mask.load(std::memory_order_acquire);
        const std::uint32_t value = entries[i].value.load(std::memory_order_acquire);
        if ((id & mask) == value) joined |= entries[i].action.load(std::memory_order_acquire);
    }
    return joined;
}

std::uint32_t FilterTable::actions(std::uint32_t id) const {
    std::uint32_t joined = 0;
    for (int attempt = 0; attempt < read_attempts; ++attempt) {
        const std::uint32_t before = changes_.load(std::memory_order_acquire);
        joined = actions_once(id);
        if ((before & 1) == 0 && changes_.load(std::memory_order_relaxed) == before) break;
    }
    return joined;
}

}  // namespace logging

#include "engine/filesystem/registry/pins.h"

#include <atomic>
#include <map>
#include <mutex>

#include "engine/platform/threads.h"

namespace fs::registry {

struct PinCount {
    explicit PinCount(const CFSSource& pinned) : source(&pinned) {}

    const CFSSource* const source;
    std::size_t pins = 0;  // guarded by the table's lock
    std::atomic<bool> going{false};
};

namespace {

/// A count stays from the first pin of its source until the source is removed, so that pinning allocates once.
struct Table {
    platform::Mutex lock;  // guards counts; a leaf
    platform::ConditionVariable dropped;
    std::map<const CFSSource*, PinCount> counts;
    std::atomic<RemovalHook> hook{nullptr};
};

Table& table() {
    static platform::NeverDestroyed<Table> instance;
    return instance.value;
}

}  // namespace

Pin::Pin(CFSSource& source) {
    Table& pins = table();
    const std::lock_guard guard(pins.lock);
    count_ = &pins.counts.try_emplace(&source, source).first->second;
    ++count_->pins;
}

Pin& Pin::operator=(Pin&& other) noexcept {
    if (this == &other) return *this;
    Drop();
    count_ = std::exchange(other.count_, nullptr);
    return *this;
}

void Pin::Drop() noexcept {
    if (count_ == nullptr) return;
    Table& pins = table();
    const std::lock_guard guard(pins.lock);
    if (--count_->pins == 0 && count_->going.load(std::memory_order_relaxed)) pins.dropped.notify_all();
    count_ = nullptr;
}

bool Pin::IsSourceGoing() const noexcept { return count_ != nullptr && count_->going.load(std::memory_order_acquire); }

bool Pin::Holds(const CFSSource& source) const noexcept { return count_ != nullptr && count_->source == &source; }

void set_removal_hook(RemovalHook hook) { table().hook.store(hook, std::memory_order_release); }

void wait_for_pins(CFSSource& source) {
    Table& pins = table();
    std::unique_lock guard(pins.lock);
    const auto place = pins.counts.find(&source);
    if (place == pins.counts.end()) return;
    place->second.going.store(true, std::memory_order_release);
    guard.unlock();
    if (const RemovalHook hook = pins.hook.load(std::memory_order_acquire); hook != nullptr) hook(source);
    guard.lock();
    pins.dropped.wait(guard, [&] { return place->second.pins == 0; });
    pins.counts.erase(place);
}

}  // namespace fs::registry

#pragma once

#include <atomic>
#include <cstddef>
#include <vector>

#include "engine/filesystem/loading/load.h"

namespace fs {

/// The layout behind SFsLoadBatch. Each of its loads that has not ended has a reference to it.
class LoadBatch final : public SFsLoadBatch {
public:
    using Callback = void (*)(SFsLoadBatch* batch, void* user);

    /// Of up to `count` loads. Throws std::bad_alloc.
    LoadBatch(std::size_t count, Callback callback, void* user) : callback_(callback), user_(user) {
        loads_.reserve(count);
    }
    LoadBatch(const LoadBatch&) = delete;
    LoadBatch& operator=(const LoadBatch&) = delete;
    ~LoadBatch();

    static LoadBatch& Of(SFsLoadBatch* batch) { return *static_cast<LoadBatch*>(batch); }
    static const LoadBatch& Of(const SFsLoadBatch* batch) { return *static_cast<const LoadBatch*>(batch); }

    /// Makes a load, which belongs to the batch as well. Throws std::bad_alloc.
    void Add(const SFsLoadWish& wish, LoadClock::time_point now);
    const std::vector<Load*>& Loads() const { return loads_; }
    /// The loads in the order in which their bytes lie: those of one source together, in the order of their places in it,
    /// where it tells them. Throws std::bad_alloc.
    std::vector<Load*> InOrderOfPlace() const;
    std::size_t Left() const { return left_.load(std::memory_order_acquire); }

    void AddReference() { references_.fetch_add(1, std::memory_order_relaxed); }
    void DropReference();
    void CountEnd() { left_.fetch_sub(1, std::memory_order_acq_rel); }
    /// One load more has been told of. Calls back after the last one.
    void CountTold();

private:
    std::vector<Load*> loads_;
    std::atomic<std::size_t> left_{0};    // have not ended
    std::atomic<std::size_t> untold_{0};  // have not called back
    std::atomic<std::uint32_t> references_{1};
    const Callback callback_;
    void* const user_;
};

}  // namespace fs

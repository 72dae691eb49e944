#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <list>
#include <set>
#include <tuple>
#include <vector>

#include "engine/filesystem/handles/request_status.h"
#include "engine/filesystem/loading/work.h"

namespace fs {

class Load;
class LoadBatch;
using LoadClock = std::chrono::steady_clock;
using LoadList = std::list<Load*>;

/// Where a load stands. The lesser comes first.
struct LoadRank {
    bool is_urgent = false;
    bool is_overdue = false;
    std::int32_t priority = 0;
    LoadClock::time_point deadline = LoadClock::time_point::max();  // max: none
    std::uint64_t arrival = 0;

    bool operator<(const LoadRank& other) const {
        return std::tuple(!is_urgent, !is_overdue, other.priority, deadline, arrival) <
               std::tuple(!other.is_urgent, !other.is_overdue, priority, other.deadline, other.arrival);
    }
};

struct LoadOrder {
    bool operator()(const Load* a, const Load* b) const;
};
struct LoadDeadlineOrder {
    bool operator()(const Load* a, const Load* b) const;
};
using LoadsByRank = std::set<Load*, LoadOrder>;
using LoadsByDeadline = std::set<Load*, LoadDeadlineOrder>;

/// The layout behind SFsLoad. Where no other guard is named, members are guarded by the loader's lock.
class Load final : public SFsLoad {
public:
    Load(const SFsLoadWish& wish, LoadClock::time_point now);  // one reference; throws std::bad_alloc

    static Load& Of(SFsLoad* load) { return *static_cast<Load*>(load); }
    static const Load& Of(const SFsLoad* load) { return *static_cast<const Load*>(load); }

    void AddReference() { references_.fetch_add(1, std::memory_order_relaxed); }
    /// True for the last one: the caller destroys the load.
    bool DropReference() { return references_.fetch_sub(1, std::memory_order_acq_rel) == 1; }

    bool IsFinished() const { return status.State() == EFSRequestState::FINISHED; }
    bool EndedWell() const { return IsFinished() && status.Result() == EFSRequestResult::SUCCESS; }
    void SetRank(std::int32_t priority, std::uint32_t deadline_ms, LoadClock::time_point now);

    LoadWork work;  // of the worker that has the load in hand; of nobody but the members' readers once FINISHED
    RequestStatus status{EFSRequestState::QUEUED};  // read without the lock, too
    LoadRank rank;
    std::uint64_t charged = 0;  // bytes of the block that count against the budget
    bool is_waiting = false;    // in the schedule
    bool is_cancelled = false;
    LoadBatch* batch = nullptr;  // there is a reference to it until the load has ended
    void (*const callback)(SFsLoad* load, void* user);
    void* const user;
    LoadClock::time_point waits_since;  // when it was asked for, or put aside
    SFsLoadTimes times{};

    // The load's own nodes of the schedule and of the list of callbacks, so that moving it there needs no memory.
    LoadsByRank::node_type rank_node;
    LoadsByDeadline::node_type deadline_node;
    LoadList home{this};

private:
    std::atomic<std::uint32_t> references_{1};
};

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

/// The loads that wait for a worker, in the order in which they are to be served. Allocates nothing; guarded by its owner.
class Schedule {
public:
    bool IsEmpty() const { return by_rank_.empty(); }
    void Add(Load& load);
    void Remove(Load& load);
    /// The foremost load at this time; null when none waits. It stays.
    Load* First(LoadClock::time_point now);
    /// How many wait below NORMAL, below HIGH, below URGENT, and URGENT.
    const std::array<std::size_t, 4>& Counts() const { return counts_; }

    template <typename Predicate>
    Load* Find(Predicate wanted) const {
        for (Load* load : by_rank_) {
            if (wanted(*load)) return load;
        }
        return nullptr;
    }

private:
    LoadsByRank by_rank_;
    LoadsByDeadline by_deadline_;  // those with a deadline that has not passed
    std::array<std::size_t, 4> counts_{};
};

}  // namespace fs

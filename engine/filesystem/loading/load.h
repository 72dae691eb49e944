#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <list>
#include <set>
#include <tuple>

#include "engine/filesystem/handles/request.h"
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

}  // namespace fs

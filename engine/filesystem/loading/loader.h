#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <set>
#include <tuple>
#include <vector>

#include <engine/kernel/multithreading.h>

#include "engine/filesystem/handles/request.h"
#include "engine/filesystem/loading/work.h"
#include "engine/platform/threads.h"

class CFSSource;

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

    /// Of `count` loads, which are added next. Throws std::bad_alloc.
    LoadBatch(std::size_t count, Callback callback, void* user)
        : left_(count), untold_(count), callback_(callback), user_(user) {
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
    bool HasCallback() const { return callback_ != nullptr; }
    std::size_t Left() const { return left_.load(std::memory_order_acquire); }

    void AddReference() { references_.fetch_add(1, std::memory_order_relaxed); }
    void DropReference();
    void CountEnd() { left_.fetch_sub(1, std::memory_order_acq_rel); }
    /// One load more has been told of. Calls back after the last one.
    void CountTold();

private:
    std::vector<Load*> loads_;
    std::atomic<std::size_t> left_;    // have not ended
    std::atomic<std::size_t> untold_;  // have not called back
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

/// Serves the loads of the process: what waits, who works, what has ended. There is one, never destroyed.
///
/// A load waits in the schedule, is in the hand of one worker, or is FINISHED; lock_ guards which. lock_ is a leaf: nothing
/// is opened, read, allocated, freed or called back while it is held.
class Loader {
public:
    Loader();
    Loader(const Loader&) = delete;
    Loader& operator=(const Loader&) = delete;

    static Loader& Instance();

    /// Takes a reference to each load and to its batch. False, with the failure stored and no load begun, while loads are stopped.
    /// Throws std::bad_alloc, with none begun.
    bool Submit(const std::vector<Load*>& loads);
    /// Waits for the end of loads. False when the time passed first, or the thread may not wait.
    bool Wait(std::uint32_t timeout_ms, const std::function<bool()>& ended);
    bool Cancel(Load& load);
    bool Reprioritise(Load& load, std::int32_t priority, std::uint32_t deadline_ms);
    const void* Data(const Load& load);
    void* Take(Load& load);
    void Release(Load& load);

    void SetPolled(bool on);
    std::uint32_t Poll(std::uint32_t most);
    /// Throws std::bad_alloc, with nothing changed.
    bool SetSettings(SFsLoadSettings settings);
    void GetStatistics(SFsLoadStatistics& out);

    /// Lets loads begin.
    void Allow();
    /// Ends every load, callbacks included, and the workers; no load begins until Allow. A callback that calls this is not
    /// waited for.
    void Stop();
    /// The source was removed from the list: what waits with an open file of it ends as CANCELLED; what is in hand does so
    /// after its step.
    void Abandon(const CFSSource& source);

private:
    struct Worker {
        bool is_lane = false;     // serves URGENT loads alone
        bool is_leaving = false;  // guarded by lock_
        mt::CThread thread;
    };
    using Workers = std::vector<std::unique_ptr<Worker>>;
    using Guard = std::unique_lock<platform::Mutex>;

    // Who works.
    void EnsureWorkers();
    static Workers Hire(const SFsLoadSettings& settings);
    Workers Dismiss(Workers successors);
    void SeeOff(Workers leaving);
    static void Run(void* worker);
    void Work(const Worker& worker, Guard& guard);
    void WorkHere(Guard& guard);
    void ServeSoon(std::size_t count, bool urgent, Guard& guard);

    // A load from the schedule to its callback. With lock_ held; what takes the guard lets it go meanwhile.
    Load* Choose(bool is_lane);
    void Serve(Load& load, const Worker& worker, Guard& guard);
    void TakeInHand(Load& load);
    static LoadWork::Step Step(Load& load, Guard& guard);
    bool HasRoom(const Load& load, std::uint64_t others, std::uint64_t urgent_others) const;
    bool KeepsHold(Load& load, LoadWork::Step step, const Worker& worker);
    bool ShouldGiveWay(Load& load, bool is_lane);
    bool End(Load& load, EFSRequestResult::TYPE result, Guard& guard);
    void EndWaiting(Load& load, Guard& guard);
    void* Finish(Load& load, EFSRequestResult::TYPE result);
    bool CallBackFirst(LoadList& from, Guard& guard);
    void CallBack(Load& load, Guard& guard);
    void Charge(Load& load, std::uint64_t bytes);
    void WakeFor(std::size_t loads, bool urgent);

    platform::Mutex staff_lock_;  // held, before lock_, by who changes workers_; never while a thread is joined

    platform::Mutex lock_;                   // guards all that follows
    platform::ConditionVariable work_;       // for workers: something waits, has room or calls back, or they leave
    platform::ConditionVariable lane_work_;  // the same for the lane
    platform::ConditionVariable ended_;      // a load, a callback or the stopping has ended

    Schedule schedule_;
    LoadList to_call_back_;  // ended, for a worker
    LoadList to_poll_;       // ended, for Poll
    Workers workers_;
    std::unique_ptr<Worker> retired_;  // called Stop in a callback; joined when the next one does, or another Stop
    SFsLoadSettings settings_;
    SFsLoadStatistics statistics_{};
    std::uint64_t total_wait_ = 0;
    std::uint64_t taken_ = 0;  // loads that a worker took, for the mean
    std::uint64_t arrivals_ = 0;
    std::uint64_t urgent_in_hand_ = 0;
    std::uint64_t ending_ = 0;  // loads that are nobody's: being ended while they waited, or calling back
    std::size_t idle_ = 0;
    std::size_t idle_lanes_ = 0;  // two may be while one takes the other's place
    bool is_polled_ = false;
    bool is_allowed_ = false;
    bool is_stopping_ = false;
    bool works_here_ = false;  // the system has no thread, and one of a caller serves what waits
};

/// What the calling thread is about; zeros for a thread that has nothing to do with the loader.
inline constinit struct LoadThread {
    platform::PerThread<const Load*, struct LoadInHand> in_hand;
    platform::PerThread<std::uint32_t, struct LoadCallbacks> callbacks;  // on the stack
    platform::PerThread<const void*, struct LoadWorker> worker;          // that it runs

    /// Whether a load may wait for what the thread does.
    bool MayNotWait() const { return worker != nullptr || callbacks != 0; }
} this_load_thread;

/// Lets loads begin; the first one starts the workers.
void start_loads();
/// Ends every load, callbacks included, and the workers, before the sources go.
void stop_loads();

}  // namespace fs

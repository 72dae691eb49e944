#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include <engine/kernel/multithreading.h>

#include "engine/filesystem/loading/load.h"
#include "engine/platform/lock.h"
#include "engine/platform/per_thread.h"

class CFSSource;

namespace fs {

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
    std::uint64_t calling_back_ = 0;
    std::size_t idle_ = 0;
    bool lane_is_idle_ = false;
    bool is_polled_ = false;
    bool is_allowed_ = false;
    bool is_stopping_ = false;
    bool works_here_ = false;  // the system has no thread, and one of a caller serves what waits
};

/// What the calling thread is about; zeros for a thread that has nothing to do with the loader.
struct LoadThread {
    platform::PerThread<const Load*, struct LoadInHand> in_hand;
    platform::PerThread<std::uint32_t, struct LoadCallbacks> callbacks;  // on the stack
    platform::PerThread<const void*, struct LoadWorker> worker;          // that it runs

    /// Whether a load may wait for what the thread does.
    bool MayNotWait() const { return worker != nullptr || callbacks != 0; }
};
LoadThread& this_load_thread();

/// Lets loads begin; the first one starts the workers.
void start_loads();
/// Ends every load, callbacks included, and the workers, before the sources go.
void stop_loads();

}  // namespace fs

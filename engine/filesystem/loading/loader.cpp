#include "engine/filesystem/loading/loader.h"

#include <chrono>
#include <utility>

#include "engine/platform/threads.h"
#include "engine/filesystem/contract/error.h"

// What is asked of the loader from outside. schedule.cpp has the order, service.cpp a load's way, staff.cpp the threads.

namespace fs {

Loader& Loader::Instance() {
    static platform::NeverDestroyed<Loader> instance;
    return instance.value;
}

bool Loader::Submit(const std::vector<Load*>& loads) {
    EnsureWorkers();
    Guard guard(lock_);
    if (!is_allowed_) {
        guard.unlock();
        return refuse(EFSError::NOT_INITIALIZED, nullptr, "Loads begin between fs::init and fs::shutdown alone.");
    }
    bool urgent = false;
    for (Load* const load : loads) {
        load->AddReference();
        if (load->batch != nullptr) load->batch->AddReference();
        load->rank.arrival = ++arrivals_;
        urgent = urgent || load->rank.is_urgent;
        schedule_.Add(*load);
    }
    ServeSoon(loads.size(), urgent, guard);
    return true;
}

void Loader::ServeSoon(std::size_t count, bool urgent, Guard& guard) {
    if (workers_.empty())
        WorkHere(guard);
    else
        WakeFor(count, urgent);
}

/// False when the time passed first, or the thread may not wait.
template <typename Ended>
bool Loader::WaitAsHost(std::uint32_t timeout_ms, Ended ended) {
    if (ended()) return true;
    if (this_load_thread().MayNotWait()) return false;
    Guard guard(lock_);
    if (timeout_ms != mt::FOREVER) return ended_.wait_for(guard, std::chrono::milliseconds(timeout_ms), ended);
    ended_.wait(guard, ended);
    return true;
}

bool Loader::Wait(const Load& load, std::uint32_t timeout_ms) {
    return WaitAsHost(timeout_ms, [&] { return load.IsFinished(); });
}

bool Loader::Wait(const LoadBatch& batch, std::uint32_t timeout_ms) {
    return WaitAsHost(timeout_ms, [&] { return batch.Left() == 0; });
}

bool Loader::Cancel(Load& load) {
    Guard guard(lock_);
    if (load.IsFinished()) return false;
    load.is_cancelled = true;
    if (load.is_waiting) {
        EndWaiting(load, guard);
    } else if (this_load_thread().in_hand != &load) {  // or a source cancels the load that it is being read for
        ended_.wait(guard, [&] { return load.IsFinished(); });
    }
    return true;
}

bool Loader::Reprioritise(Load& load, std::int32_t priority, std::uint32_t deadline_ms) {
    const Guard guard(lock_);
    if (load.IsFinished()) return false;
    const bool was_waiting = load.is_waiting;
    if (was_waiting) schedule_.Remove(load);
    load.SetRank(priority, deadline_ms, LoadClock::now());
    if (was_waiting) {
        schedule_.Add(load);
        WakeFor(1, load.rank.is_urgent);
    }
    return true;
}

const void* Loader::Data(const Load& load) {
    const Guard guard(lock_);
    return load.EndedWell() ? load.work.Data() : nullptr;
}

void* Loader::Take(Load& load) {
    const Guard guard(lock_);
    if (!load.EndedWell()) return nullptr;
    void* const block = load.work.TakeBlock();
    Charge(load, 0);
    return block;
}

void Loader::Release(Load& load) {
    if (!load.DropReference()) return;
    {
        const Guard guard(lock_);
        Charge(load, 0);
    }
    delete &load;
}

/// Callbacks that wait for Poll are no longer asked for there.
void Loader::SetPolled(bool on) {
    Guard guard(lock_);
    is_polled_ = on;
    if (on || to_poll_.empty()) return;
    to_call_back_.splice(to_call_back_.end(), to_poll_);
    ServeSoon(to_call_back_.size(), false, guard);
}

std::uint32_t Loader::Poll(std::uint32_t most) {
    Guard guard(lock_);
    std::uint32_t told = 0;
    while (told < most && CallBackFirst(to_poll_, guard)) ++told;
    return told;
}

void Loader::GetStatistics(SFsLoadStatistics& out) {
    const Guard guard(lock_);
    out = statistics_;
    for (std::size_t at = 0; at < schedule_.Counts().size(); ++at) out.waiting[at] = schedule_.Counts()[at];
    out.mean_wait = taken_ != 0 ? total_wait_ / taken_ : 0;
}

void Loader::Allow() {
    const Guard guard(lock_);
    is_allowed_ = true;
}

void Loader::Abandon(const CFSSource& source) {
    Guard guard(lock_);
    while (Load* const load = schedule_.Find([&](const Load& held) { return held.work.UsesSource(source); }))
        EndWaiting(*load, guard);
}

}  // namespace fs

#include "engine/filesystem/loading/loader.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>
#include <utility>

#include "engine/filesystem/contract/failure.h"
#include "engine/filesystem/log/message.h"
#include "engine/platform/threads.h"

// What is asked of the loader from outside, and its threads. load.cpp has a load's way.
//
// Who works: a few threads of the loader's own, since decoding on threads that the host shares would starve its frames, and
// the lane, which stands ready for URGENT loads while all others are inflating. They are hired by the first load.
//
// Nobody waits for a thread with a lock held, and a thread never waits for itself: a callback may stop the loader.

namespace fs {

namespace {

constexpr MessageSource log_source{"FileSystem", "engine/filesystem/loading"};
constexpr int lane_priority = 2;

SFsLoadSettings with_defaults(SFsLoadSettings settings) {
    const std::uint32_t processors = std::thread::hardware_concurrency();
    if (settings.workers == 0) settings.workers = std::clamp(processors, 2u, 5u) - 1;
    if (settings.block_bytes == 0) settings.block_bytes = 256 << 20;
    return settings;
}

void tell_of_no_threads() {
    static std::atomic<bool> is_told{false};
    if (!is_told.exchange(true))
        log_message(log_source, Log::ELevel::WARN, __LINE__,
                    "The system has no thread for loads: they run where they are asked for, one at a time.\n");
}

}  // namespace

Loader& Loader::Instance() { return platform::never_destroyed<Loader>(); }

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

bool Loader::Wait(std::uint32_t timeout_ms, const std::function<bool()>& ended) {
    if (ended()) return true;
    if (this_load_thread.MayNotWait()) return false;
    Guard guard(lock_);
    if (timeout_ms != mt::FOREVER) return ended_.wait_for(guard, std::chrono::milliseconds(timeout_ms), ended);
    ended_.wait(guard, ended);
    return true;
}

bool Loader::Cancel(Load& load) {
    Guard guard(lock_);
    if (load.IsFinished()) return false;
    load.is_cancelled = true;
    if (load.is_waiting) {
        EndWaiting(load, guard);
    } else if (this_load_thread.in_hand != &load) {  // or a source cancels the load that it is being read for
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

Loader::Loader() : settings_(with_defaults({})) {}

/// Without a thread for even one worker there is nobody, and WorkHere serves.
void Loader::EnsureWorkers() {
    const std::lock_guard hiring(staff_lock_);
    Guard guard(lock_);
    if (!is_allowed_ || !workers_.empty()) return;
    const SFsLoadSettings settings = settings_;
    guard.unlock();
    Workers hired = Hire(settings);
    guard.lock();
    workers_ = std::move(hired);
}

/// All that can throw comes before the first thread, which would otherwise have to be told to leave.
Loader::Workers Loader::Hire(const SFsLoadSettings& settings) {
    Workers hired(settings.workers + (settings.no_urgent_lane ? 0 : 1));
    for (auto& worker : hired) worker = std::make_unique<Worker>();
    if (!settings.no_urgent_lane) hired.back()->is_lane = true;
    const auto starts = [](const std::unique_ptr<Worker>& worker) {
        return worker->thread.Start(worker->is_lane ? "load lane" : "load", &Loader::Run, worker.get(),
                                    worker->is_lane ? lane_priority : 0);
    };
    hired.erase(std::find_if_not(hired.begin(), hired.end(), starts), hired.end());
    return hired;
}

/// With both locks held. Their threads end after the step and the callback in hand.
Loader::Workers Loader::Dismiss(Workers successors) {
    for (const auto& worker : workers_) worker->is_leaving = true;
    work_.notify_all();
    lane_work_.notify_all();
    return std::exchange(workers_, std::move(successors));
}

/// Waits for the threads to end, but for the calling one, which is waited for when the next one retires.
void Loader::SeeOff(Workers leaving) {
    const void* const self = this_load_thread.worker;
    std::unique_ptr<Worker> retired_before;
    const Guard guard(lock_);
    if (retired_.get() != self) retired_before = std::move(retired_);
    for (auto& worker : leaving) {
        if (worker.get() == self) retired_ = std::move(worker);
    }
}

bool Loader::SetSettings(SFsLoadSettings settings) {
    constexpr std::uint32_t most_workers = 64;
    if (settings.workers > most_workers || this_load_thread.MayNotWait())
        return refuse(EFSError::INVALID_ARGUMENT, nullptr,
                      "There are at most 64 workers, and a worker does not change their number.");
    settings = with_defaults(settings);
    Workers leaving;
    {
        const std::lock_guard hiring(staff_lock_);
        Workers hired = workers_.empty() ? Workers() : Hire(settings);
        const Guard guard(lock_);
        settings_ = settings;
        leaving = Dismiss(std::move(hired));
    }
    SeeOff(std::move(leaving));
    Guard guard(lock_);
    if (!schedule_.IsEmpty() || !to_call_back_.empty()) ServeSoon(1, true, guard);  // the system may have no thread now
    return true;
}

void Loader::Stop() {
    const std::uint64_t own = this_load_thread.callbacks;
    Workers leaving;
    std::unique_lock hiring(staff_lock_);
    Guard guard(lock_);
    is_allowed_ = false;
    leaving = Dismiss({});
    hiring.unlock();
    if (is_stopping_) {  // another thread does it
        if (own == 0) ended_.wait(guard, [this] { return !is_stopping_; });
        return;
    }
    is_stopping_ = true;
    while (Load* const load = schedule_.First(LoadClock::now())) EndWaiting(*load, guard);
    guard.unlock();
    SeeOff(std::move(leaving));
    guard.lock();
    const auto is_quiet = [&] { return statistics_.in_hand == 0 && ending_ <= own; };
    do {
        ended_.wait(guard, is_quiet);
    } while (CallBackFirst(to_call_back_, guard) || CallBackFirst(to_poll_, guard));
    is_stopping_ = false;
    ended_.notify_all();
}

void Loader::Run(void* worker) {
    Loader& loader = Instance();
    this_load_thread.worker = worker;
    Guard guard(loader.lock_);
    loader.Work(*static_cast<const Worker*>(worker), guard);
}

void Loader::Work(const Worker& worker, Guard& guard) {
    for (;;) {
        if (!worker.is_lane && CallBackFirst(to_call_back_, guard)) continue;
        if (worker.is_leaving) return;
        if (Load* const load = Choose(worker.is_lane); load != nullptr) {
            Serve(*load, worker, guard);
        } else if (worker.is_lane) {
            ++idle_lanes_;
            lane_work_.wait(guard);
            --idle_lanes_;
        } else {
            ++idle_;
            work_.wait(guard);
            --idle_;
        }
    }
}

/// Serves all that waits, unless another thread does so already, also one further up on this stack. Unlocks the guard.
void Loader::WorkHere(Guard& guard) {
    const bool is_done_elsewhere = std::exchange(works_here_, true);
    guard.unlock();
    if (is_done_elsewhere) return;
    ErrorScope scope;  // what fails here is told by its load
    tell_of_no_threads();
    const Worker here;
    const void* const worker_before = this_load_thread.worker;
    this_load_thread.worker = &here;
    guard.lock();
    for (;;) {
        if (CallBackFirst(to_call_back_, guard)) continue;
        Load* const load = Choose(false);
        if (load == nullptr) break;
        Serve(*load, here, guard);
    }
    works_here_ = false;
    guard.unlock();
    this_load_thread.worker = worker_before;
    scope.forget();
}

}  // namespace fs

#include "engine/filesystem/loading/loader.h"

#include <algorithm>
#include <utility>

#include "engine/filesystem/contract/guarded.h"

// A worker takes the foremost load, and does it step by step. After each step the load has ended, stays in hand, or is put
// aside: back into the schedule with its file open, since one that comes before it waits and nobody is idle.
//
// The budget of block_bytes is asked for once, when the file is open and the length known. What has no room waits as the
// foremost load, and nothing passes it, so that a long load is not starved by short ones; and it enters in any case when
// nothing else is in hand, since the bytes it waits for may be those of loads that nobody takes before this one has ended.

namespace fs {

namespace {

using std::chrono::duration_cast;
using std::chrono::microseconds;

bool has_callback(const Load& load) { return load.callback != nullptr || load.batch != nullptr; }

void move_to(LoadList& list, Load& load) { list.splice(list.end(), load.home); }

}  // namespace

Load* Loader::Choose(bool is_lane) {
    Load* const first = schedule_.First(LoadClock::now());
    if (first == nullptr || (is_lane && !first->rank.is_urgent)) return nullptr;
    return HasRoom(*first, statistics_.in_hand, urgent_in_hand_) ? first : nullptr;
}

bool Loader::HasRoom(const Load& load, std::uint64_t others, std::uint64_t urgent_others) const {
    const std::uint64_t needed = load.work.BlockBytes() - std::min(load.charged, load.work.BlockBytes());
    if (needed == 0 || others == 0 || (load.rank.is_urgent && urgent_others == 0)) return true;
    return statistics_.block_bytes + needed <= settings_.block_bytes;
}

void Loader::Serve(Load& load, const Worker& worker, Guard& guard) {
    const bool is_urgent = load.rank.is_urgent;
    TakeInHand(load);
    urgent_in_hand_ += is_urgent ? 1 : 0;
    LoadWork::Step step;
    do {
        Charge(load, load.work.BlockBytes());
        this_load_thread().in_hand = &load;
        guard.unlock();
        step = load.work.Next();
        guard.lock();
        this_load_thread().in_hand = nullptr;
    } while (KeepsHold(load, step, worker));
    urgent_in_hand_ -= is_urgent ? 1 : 0;
    --statistics_.in_hand;
    if (load.is_cancelled || load.work.IsSourceGoing() || is_stopping_)
        End(load, EFSRequestResult::CANCELLED, guard);
    else if (step == LoadWork::Step::DONE || step == LoadWork::Step::FAILED)
        End(load, step == LoadWork::Step::DONE ? EFSRequestResult::SUCCESS : EFSRequestResult::FAILED, guard);
    else
        PutAside(load);
}

/// Somebody else may have to take it, or what it made room for.
void Loader::PutAside(Load& load) {
    schedule_.Add(load);
    WakeFor(1, true);
}

void Loader::TakeInHand(Load& load) {
    schedule_.Remove(load);
    ++statistics_.in_hand;
    load.status.Set(EFSRequestState::IN_PROGRESS);
    if (std::exchange(load.was_taken, true)) return;
    const auto waited = duration_cast<microseconds>(LoadClock::now() - load.asked_at).count();
    total_wait_ += static_cast<std::uint64_t>(waited);
    ++taken_;
    statistics_.longest_wait = std::max(statistics_.longest_wait, static_cast<std::uint64_t>(waited));
}

/// Whether the worker goes on with the load after this step.
bool Loader::KeepsHold(Load& load, LoadWork::Step step, const Worker& worker) {
    if (load.is_cancelled || is_stopping_ || worker.is_leaving || load.work.IsSourceGoing()) return false;
    if (step == LoadWork::Step::NEEDS_BLOCK) return HasRoom(load, statistics_.in_hand - 1, urgent_in_hand_ - 1);
    return step == LoadWork::Step::MORE && !ShouldGiveWay(load, worker.is_lane);
}

bool Loader::ShouldGiveWay(Load& load, bool is_lane) {
    if (!is_lane && idle_ == 0 && !to_call_back_.empty()) return true;
    const auto now = LoadClock::now();
    load.rank.is_overdue = load.rank.deadline <= now;
    const Load* const first = schedule_.First(now);
    if (first == nullptr || !(first->rank < load.rank)) return false;
    const bool others_take_it = idle_ != 0 || (first->rank.is_urgent && lane_is_idle_);
    return !others_take_it && HasRoom(*first, statistics_.in_hand - 1, urgent_in_hand_);
}

void Loader::End(Load& load, EFSRequestResult::TYPE result, Guard& guard) {
    guard.unlock();
    load.work.End(result);
    guard.lock();
    Finish(load, result);
    if (is_polled_ && has_callback(load))
        move_to(to_poll_, load);
    else
        CallBack(load, guard);
}

/// Of a load that waits; it is nobody's meanwhile.
void Loader::EndWaiting(Load& load, Guard& guard) {
    load.is_cancelled = true;
    schedule_.Remove(load);
    guard.unlock();
    load.work.End(EFSRequestResult::CANCELLED);
    guard.lock();
    Finish(load, EFSRequestResult::CANCELLED);
    if (is_polled_ && has_callback(load)) return move_to(to_poll_, load);
    move_to(to_call_back_, load);
    WakeFor(1, false);
}

void Loader::Finish(Load& load, EFSRequestResult::TYPE result) {
    Charge(load, load.work.BlockBytes());
    statistics_.done += result == EFSRequestResult::SUCCESS ? 1 : 0;
    statistics_.failed += result == EFSRequestResult::FAILED ? 1 : 0;
    statistics_.cancelled += result == EFSRequestResult::CANCELLED ? 1 : 0;
    if (result == EFSRequestResult::SUCCESS) statistics_.bytes += load.work.Size();
    if (load.rank.deadline < LoadClock::now()) ++statistics_.missed_deadlines;
    load.status.Set(EFSRequestState::FINISHED, result);
    if (load.batch != nullptr) load.batch->CountEnd();
    if (waiters_ != 0) ended_.notify_all();
    if (!schedule_.IsEmpty()) WakeFor(1, true);  // what waited until nothing else is in hand
}

/// Tells the host, and gives the loader's reference back.
void Loader::CallBack(Load& load, Guard& guard) {
    LoadBatch* const batch = load.batch;
    ++calling_back_;
    guard.unlock();
    ++this_load_thread().callbacks;
    guarded(load.work.Path().c_str(), [&] {
        if (load.callback != nullptr) load.callback(&load, load.user);
    });
    if (batch != nullptr) {
        guarded(nullptr, [&] { batch->CountTold(); });
        batch->DropReference();
    }
    --this_load_thread().callbacks;
    Release(load);
    guard.lock();
    --calling_back_;
    if (waiters_ != 0) ended_.notify_all();
}

bool Loader::CallBackFirst(LoadList& from, Guard& guard) {
    if (from.empty()) return false;
    Load& load = *from.front();
    load.home.splice(load.home.end(), from, from.begin());
    CallBack(load, guard);
    return true;
}

/// Counts what the load's block takes of the budget.
void Loader::Charge(Load& load, std::uint64_t bytes) {
    const bool frees = bytes < load.charged;
    statistics_.block_bytes += bytes - load.charged;
    load.charged = bytes;
    if (frees && !schedule_.IsEmpty()) WakeFor(1, true);
}

void Loader::WakeFor(std::size_t loads, bool urgent) {
    for (std::size_t woken = 0; woken < std::min(loads, idle_); ++woken) work_.notify_one();
    if (urgent && lane_is_idle_) lane_work_.notify_one();
}

}  // namespace fs

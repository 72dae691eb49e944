#include "engine/filesystem/loading/loader.h"

#include <algorithm>
#include <cstdlib>
#include <map>
#include <memory>
#include <utility>

#include <engine/filesystem/contract/placed_source.h>

#include "engine/filesystem/contract/failure.h"
#include "engine/filesystem/contract/path_text.h"
#include "engine/filesystem/registry/holders.h"

// A load, its batch, its place in the order, and its way from there to its callback.
//
// A worker takes the foremost load, and does it step by step. After each step the load has ended, stays in hand, or is put
// aside: back into the schedule with its file open, since one that comes before it waits and nobody is idle.
//
// The budget of block_bytes is asked for once, when the file is open and the length known. What has no room waits as the
// foremost load, and nothing passes it, so that a long load is not starved by short ones; and it enters in any case when
// nothing else is in hand, since the bytes it waits for may be those of loads that nobody takes before this one has ended.
//
// A load whose deadline passes comes before all that are not URGENT. It is moved there when the schedule is next asked, so
// each load is moved once at most and asking stays cheap.

namespace fs {

namespace {

template <typename Set>
typename Set::node_type node_of(Load* load) {
    Set single{load};
    return single.extract(single.begin());
}

std::size_t class_of(std::int32_t priority) {
    if (priority >= EFSLoadPriority::URGENT) return 3;
    if (priority >= EFSLoadPriority::HIGH) return 2;
    return priority >= EFSLoadPriority::NORMAL ? 1 : 0;
}

std::uint64_t microseconds_since(LoadClock::time_point then) {
    const auto time = std::chrono::duration_cast<std::chrono::microseconds>(LoadClock::now() - then);
    return static_cast<std::uint64_t>(time.count());
}

/// Of a load that is taken, or ends without.
void count_wait(Load& load) {
    const bool is_first = load.status.State() == EFSRequestState::QUEUED;
    (is_first ? load.times.waited : load.times.aside) += microseconds_since(load.waits_since);
}

void move_to(LoadList& list, Load& load) { list.splice(list.end(), load.home); }

}  // namespace

bool LoadOrder::operator()(const Load* a, const Load* b) const { return a->rank < b->rank; }

bool LoadDeadlineOrder::operator()(const Load* a, const Load* b) const {
    return std::tuple(a->rank.deadline, a->rank.arrival) < std::tuple(b->rank.deadline, b->rank.arrival);
}

Load::Load(const SFsLoadWish& wish, LoadClock::time_point now)
    : work(wish),
      callback(wish.callback),
      user(wish.user),
      waits_since(now),
      rank_node(node_of<LoadsByRank>(this)),
      deadline_node(node_of<LoadsByDeadline>(this)) {
    SetRank(wish.priority, wish.deadline_ms, now);
}

void Load::SetRank(std::int32_t priority, std::uint32_t deadline_ms, LoadClock::time_point now) {
    rank.is_urgent = priority >= EFSLoadPriority::URGENT;
    rank.is_overdue = false;
    rank.priority = priority;
    rank.deadline = deadline_ms != 0 ? now + std::chrono::milliseconds(deadline_ms) : LoadClock::time_point::max();
}

LoadBatch::~LoadBatch() {
    for (Load* load : loads_) load->Release();
}

void LoadBatch::Add(const SFsLoadWish& wish, LoadClock::time_point now) {
    loads_.push_back(std::make_unique<Load>(wish, now).release());
    loads_.back()->batch = this;
}

std::vector<Load*> LoadBatch::InOrderOfPlace() const {
    std::map<const CFSSource*, std::size_t> sources;  // in the order in which the loads name them
    std::multimap<std::pair<std::size_t, std::uint64_t>, Load*> placed;
    for (Load* const load : loads_) {
        const fs::path name = lookup_name(load->work.Path().c_str());
        const registry::SharedGuard guard;
        CFSSource* const holder = registry::first_holder(name, registry::match_of(load->work.Flags()));
        auto* const tells = dynamic_cast<PlacedSource*>(holder);
        const std::size_t source = sources.try_emplace(holder, sources.size()).first->second;
        placed.emplace(std::pair(source, tells != nullptr ? tells->place(name) : 0), load);
    }
    std::vector<Load*> ordered;
    ordered.reserve(placed.size());
    for (const auto& [place, load] : placed) ordered.push_back(load);
    return ordered;
}

void LoadBatch::DropReference() {
    if (references_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
}

void LoadBatch::CountTold() {
    if (untold_.fetch_sub(1, std::memory_order_acq_rel) == 1 && callback_ != nullptr) callback_(this, user_);
}

void Schedule::Add(Load& load) {
    by_rank_.insert(std::move(load.rank_node));
    const bool has_deadline = load.rank.deadline != LoadClock::time_point::max();
    if (has_deadline && !load.rank.is_overdue) by_deadline_.insert(std::move(load.deadline_node));
    load.is_waiting = true;
    ++counts_[class_of(load.rank.priority)];
}

void Schedule::Remove(Load& load) {
    load.rank_node = by_rank_.extract(&load);
    if (load.deadline_node.empty()) load.deadline_node = by_deadline_.extract(&load);
    load.is_waiting = false;
    --counts_[class_of(load.rank.priority)];
}

Load* Schedule::First(LoadClock::time_point now) {
    while (!by_deadline_.empty() && (*by_deadline_.begin())->rank.deadline <= now) {
        Load& load = **by_deadline_.begin();
        load.deadline_node = by_deadline_.extract(by_deadline_.begin());
        load.rank_node = by_rank_.extract(&load);
        load.rank.is_overdue = true;
        by_rank_.insert(std::move(load.rank_node));
    }
    return by_rank_.empty() ? nullptr : *by_rank_.begin();
}

Load* Loader::Choose(bool is_lane) {
    Load* const first = schedule_.First(LoadClock::now());
    if (first == nullptr || (is_lane && !first->rank.is_urgent)) return nullptr;
    return HasRoom(*first, statistics_.in_hand, urgent_in_hand_) ? first : nullptr;
}

bool Loader::HasRoom(const Load& load, std::uint64_t others, std::uint64_t urgent_others) const {
    const std::uint64_t needed = load.work.BlockBytes() - std::min(load.charged, load.work.BlockBytes());
    if (needed == 0 || others == 0 || (load.rank.is_urgent && urgent_others == 0)) return true;
    return needed <= settings_.block_bytes - std::min(statistics_.block_bytes, settings_.block_bytes);
}

void Loader::Serve(Load& load, const Worker& worker, Guard& guard) {
    const bool is_urgent = load.rank.is_urgent;
    TakeInHand(load);
    LoadWork::Step step;
    do {
        Charge(load, load.work.BlockBytes());
        step = Step(load, guard);
    } while (KeepsHold(load, step, worker));
    bool is_to_be_told = false;
    if (load.is_cancelled || load.work.IsSourceGoing() || is_stopping_) {
        is_to_be_told = End(load, EFSRequestResult::CANCELLED, guard);
    } else if (step == LoadWork::Step::DONE) {
        is_to_be_told = End(load, EFSRequestResult::SUCCESS, guard);
    } else if (step == LoadWork::Step::FAILED) {
        is_to_be_told = End(load, EFSRequestResult::FAILED, guard);
    } else {  // put aside
        load.waits_since = LoadClock::now();
        schedule_.Add(load);
    }
    --statistics_.in_hand;
    urgent_in_hand_ -= is_urgent ? 1 : 0;
    ended_.notify_all();
    // Somebody else may have to take what was put aside, or what waited for room or until nothing else is in hand.
    if (!schedule_.IsEmpty()) WakeFor(1, true);
    if (is_to_be_told) CallBack(load, guard);
}

LoadWork::Step Loader::Step(Load& load, Guard& guard) {
    this_load_thread.in_hand = &load;
    guard.unlock();
    std::uint64_t& time = load.work.IsOpen() ? load.times.reading : load.times.opening;
    const auto began = LoadClock::now();
    const LoadWork::Step step = load.work.Next();
    time += microseconds_since(began);
    guard.lock();
    this_load_thread.in_hand = nullptr;
    return step;
}

void Loader::TakeInHand(Load& load) {
    schedule_.Remove(load);
    ++statistics_.in_hand;
    urgent_in_hand_ += load.rank.is_urgent ? 1 : 0;
    count_wait(load);
    if (load.status.State() != EFSRequestState::QUEUED) return;
    load.status.Set(EFSRequestState::IN_PROGRESS);
    total_wait_ += load.times.waited;
    ++taken_;
    statistics_.longest_wait = std::max(statistics_.longest_wait, load.times.waited);
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
    const bool others_take_it = idle_ != 0 || (first->rank.is_urgent && idle_lanes_ != 0);
    return !others_take_it && HasRoom(*first, statistics_.in_hand - 1, urgent_in_hand_);
}

/// True when the load is to be told of now, and not by Poll. A block that nobody gets is freed last: with many pages that
/// takes longer than a step, and whoever cancels waits.
bool Loader::End(Load& load, EFSRequestResult::TYPE result, Guard& guard) {
    guard.unlock();
    load.work.Close(result);
    guard.lock();
    void* const dropped = Finish(load, result);
    const bool has_callback = load.callback != nullptr || (load.batch != nullptr && load.batch->HasCallback());
    const bool waits_for_poll = is_polled_ && has_callback;
    if (waits_for_poll) move_to(to_poll_, load);
    if (dropped != nullptr) {
        guard.unlock();
        std::free(dropped);
        guard.lock();
    }
    return !waits_for_poll;
}

/// Of a load that waits; it is nobody's meanwhile.
void Loader::EndWaiting(Load& load, Guard& guard) {
    load.is_cancelled = true;
    schedule_.Remove(load);
    count_wait(load);
    ++ending_;
    if (End(load, EFSRequestResult::CANCELLED, guard)) move_to(to_call_back_, load);
    --ending_;
    ended_.notify_all();
    WakeFor(1, true);
}

/// Answers the block of a load that did not end well.
void* Loader::Finish(Load& load, EFSRequestResult::TYPE result) {
    void* const dropped = result == EFSRequestResult::SUCCESS ? nullptr : load.work.TakeBlock();
    Charge(load, load.work.BlockBytes());
    statistics_.done += result == EFSRequestResult::SUCCESS ? 1 : 0;
    statistics_.failed += result == EFSRequestResult::FAILED ? 1 : 0;
    statistics_.cancelled += result == EFSRequestResult::CANCELLED ? 1 : 0;
    if (result == EFSRequestResult::SUCCESS) statistics_.bytes += load.work.Size();
    if (load.rank.deadline < LoadClock::now()) ++statistics_.missed_deadlines;
    load.status.Set(EFSRequestState::FINISHED, result);
    if (load.batch != nullptr) load.batch->CountEnd();
    ended_.notify_all();
    return dropped;
}

/// Tells the host, and gives the loader's reference back.
void Loader::CallBack(Load& load, Guard& guard) {
    LoadBatch* const batch = load.batch;
    ++ending_;
    guard.unlock();
    ++this_load_thread.callbacks;
    guarded(load.work.Path().c_str(), [&] {
        if (load.callback != nullptr) load.callback(&load, load.user);
    });
    if (batch != nullptr) {
        guarded(nullptr, [&] { batch->CountTold(); });
        batch->DropReference();
    }
    --this_load_thread.callbacks;
    Release(load);
    guard.lock();
    --ending_;
    ended_.notify_all();
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
    if (urgent && idle_lanes_ != 0) lane_work_.notify_one();
}

}  // namespace fs

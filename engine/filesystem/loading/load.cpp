#include "engine/filesystem/loading/load.h"

#include <map>
#include <memory>
#include <utility>

#include <engine/filesystem/contract/placed_source.h>

#include "engine/filesystem/contract/lookup_name.h"
#include "engine/filesystem/registry/holders.h"

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
    left_.fetch_add(1, std::memory_order_relaxed);
    untold_.fetch_add(1, std::memory_order_relaxed);
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

}  // namespace fs

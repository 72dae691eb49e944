#include "engine/filesystem/loading/load.h"

namespace fs {

namespace {

template <typename Set>
typename Set::node_type node_of(Load* load) {
    Set single{load};
    return single.extract(single.begin());
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

}  // namespace fs

#include "engine/filesystem/loading/schedule.h"

#include <utility>

// A load whose deadline passes comes before all that are not URGENT. It is moved there when the schedule is next asked, so
// each load is moved once at most and asking stays cheap.

namespace fs {

namespace {

std::size_t class_of(std::int32_t priority) {
    if (priority >= EFSLoadPriority::URGENT) return 3;
    if (priority >= EFSLoadPriority::HIGH) return 2;
    return priority >= EFSLoadPriority::NORMAL ? 1 : 0;
}

bool has_deadline(const Load& load) { return load.rank.deadline != LoadClock::time_point::max(); }

}  // namespace

void Schedule::Add(Load& load) {
    by_rank_.insert(std::move(load.rank_node));
    if (has_deadline(load) && !load.rank.is_overdue) by_deadline_.insert(std::move(load.deadline_node));
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
    MoveUpOverdue(now);
    return by_rank_.empty() ? nullptr : *by_rank_.begin();
}

void Schedule::MoveUpOverdue(LoadClock::time_point now) {
    while (!by_deadline_.empty() && (*by_deadline_.begin())->rank.deadline <= now) {
        Load& load = **by_deadline_.begin();
        load.deadline_node = by_deadline_.extract(by_deadline_.begin());
        load.rank_node = by_rank_.extract(&load);
        load.rank.is_overdue = true;
        by_rank_.insert(std::move(load.rank_node));
    }
}

}  // namespace fs

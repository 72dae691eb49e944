#pragma once

#include <array>
#include <cstddef>

#include "engine/filesystem/loading/load.h"

namespace fs {

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
    void MoveUpOverdue(LoadClock::time_point now);

    LoadsByRank by_rank_;
    LoadsByDeadline by_deadline_;  // those with a deadline that has not passed
    std::array<std::size_t, 4> counts_{};
};

}  // namespace fs

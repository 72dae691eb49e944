#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <vector>

#include <benchmark/benchmark.h>

/// Ratios within one run: ours and what it is held against take turns, so that both meet the same machine.
namespace paired {

/// Seconds that one call takes.
template <class Work>
double seconds(Work&& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

inline double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

/// Runs both in turn, once to warm up and then `rounds` times, and reports the median of ours / theirs as "ratio" and
/// the time of one of `items` in nanoseconds for each. `prepare` runs before each of them and is not timed.
template <class Prepare, class Ours, class Theirs>
void compare_prepared(benchmark::State& state, std::size_t items, int rounds, Prepare&& prepare, Ours&& ours,
                      Theirs&& theirs) {
    const auto timed = [&prepare](auto& work) {
        prepare();
        return seconds(work);
    };
    for (auto _ : state) {
        timed(ours);
        timed(theirs);
        std::vector<double> ratios, our_times, their_times;
        for (int round = 0; round < rounds; ++round) {
            their_times.push_back(timed(theirs));
            our_times.push_back(timed(ours));
            ratios.push_back(our_times.back() / their_times.back());
        }
        const double scale = 1e9 / static_cast<double>(items);
        state.counters["ratio"] = median(ratios);
        state.counters["ours_ns"] = median(our_times) * scale;
        state.counters["theirs_ns"] = median(their_times) * scale;
    }
}

template <class Ours, class Theirs>
void compare(benchmark::State& state, std::size_t items, int rounds, Ours&& ours, Theirs&& theirs) {
    compare_prepared(
        state, items, rounds, [] {}, ours, theirs);
}

}  // namespace paired

#pragma once

#include <cstddef>
#include <latch>
#include <thread>
#include <vector>

/// Runs act(0) to act(count - 1), each in a thread of its own, all at once.
template <class Act>
void run_together(std::size_t count, Act act) {
    std::latch start(static_cast<std::ptrdiff_t>(count));
    std::vector<std::jthread> threads;
    for (std::size_t id = 0; id < count; ++id) {
        threads.emplace_back([&, id] {
            start.arrive_and_wait();
            act(id);
        });
    }
}

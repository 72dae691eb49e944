#pragma once

#include <atomic>
#include <cstddef>
#include <thread>
#include <vector>

/// Runs act(0) to act(count - 1), each in a thread of its own, all at once.
template <class Act>
void run_together(std::size_t count, Act act) {
    std::atomic<std::size_t> missing = count;  // std::latch now and then wakes nobody where it waits without a futex
    std::vector<std::jthread> threads;
    for (std::size_t id = 0; id < count; ++id) {
        threads.emplace_back([&, id] {
            --missing;
            while (missing != 0) std::this_thread::yield();
            act(id);
        });
    }
}

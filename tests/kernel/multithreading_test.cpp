#include <engine/kernel/multithreading.h>
#include <gmock/gmock.h>

#include <array>
#include <atomic>
#include <mutex>
#include <shared_mutex>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/run_together.h"

namespace mt {
namespace {

constexpr std::uint32_t long_time_ms = 60'000;
constexpr std::uint32_t short_time_ms = 20;

using Crowd = std::vector<std::jthread>;  // which waits for their ends

TEST(CThread, StandsForOneThreadAtATimeAndMovesWithIt) {
    struct Shared {
        CEvent go{true};
        std::atomic<int> passed{0};
        std::atomic<std::uint64_t> id{0};
        CThreadLocalPointer<void> slot{};
    } shared;
    shared.slot.Set(&shared);
    const CThread::Entry pass = [](void* argument) {
        auto& [go, passed, id, slot] = *static_cast<Shared*>(argument);
        EXPECT_TRUE(slot.IsValid() && slot.Get() == nullptr) << "each thread has its own pointer, which starts as null";
        slot.Set(&go);
        go.Wait();
        id = CThread::CurrentId();
        ++passed;
    };
    {
        CThread thread;
        EXPECT_FALSE(thread.Start("nothing to run", nullptr, nullptr));
        ASSERT_TRUE(thread.Start(nullptr, pass, &shared));
        EXPECT_FALSE(thread.Start("second", pass, &shared));
        CThread other(std::move(thread));
        EXPECT_FALSE(thread.IsStarted());
        EXPECT_TRUE(other.IsStarted());
        ASSERT_TRUE(thread.Start("second", pass, &shared, 99));
        EXPECT_EQ(shared.passed, 0);
        shared.go.Set();
        other = std::move(thread);  // joins the first; the destructor joins the second
        EXPECT_GE(shared.passed, 1);
    }
    EXPECT_EQ(shared.passed, 2);
    for (int priority = -2; priority <= 2; ++priority) {
        CThread thread;
        EXPECT_TRUE(thread.Start("a worker with a long name", pass, &shared, priority));
        thread.Join();
        EXPECT_EQ(shared.passed, 5 + priority);
        EXPECT_NE(shared.id.exchange(0), CThread::CurrentId());
    }
    EXPECT_EQ(shared.slot.Get(), &shared);
}

/// Whether another thread gets the lock, which it leaves again.
template <class Lock>
bool is_free(Lock& lock) {
    bool entered = false;
    std::jthread([&] { entered = std::unique_lock(lock, std::try_to_lock).owns_lock(); }).join();
    return entered;
}

TEST(CCriticalSection, IsLeftAsOftenAsItWasEntered) {
    CCriticalSection section;
    {
        const std::lock_guard outer(section);
        { const std::lock_guard inner(section); }
        EXPECT_FALSE(is_free(section));
    }
    EXPECT_TRUE(is_free(section));
}

// Everybody who sleeps must be woken, and a lost wake shows only in a crowd: readers and writers of different rhythm
// fight for one lock, which sleeps, wakes and hands over all the time. And readers that never pause, so that there always
// is one inside, must not keep the writers out.
TEST(CSlimLock, KeepsACrowdConsistentLosesNoWakeAndLetsWritersIn) {
    constexpr int writers = 4;
    for (const bool readers_stay : {false, true}) {
        const int writes = readers_stay ? 20 : 3000;
        CSlimLock lock;
        {
            const std::shared_lock guard(lock);
            std::jthread([&] { const std::shared_lock beside(lock); }).join();  // would hang if readers did not share
            EXPECT_FALSE(is_free(lock));
        }
        std::array<int, 2> pair{};
        std::atomic<int> torn{0};
        std::atomic<int> writing{writers};
        CEvent written(true);
        const auto write = [&] {
            for (int i = 0; i < writes; ++i) {
                const std::lock_guard guard(lock);
                ++pair[0];
                if (i % 64 == 0) std::this_thread::yield();
                ++pair[1];
            }
            if (--writing == 0) written.Set();
        };
        const auto read = [&] {
            for (int i = 0; readers_stay ? writing > 0 : i < writes; ++i) {
                const std::shared_lock guard(lock);
                if (readers_stay || i % 16 == 0) std::this_thread::yield();
                if (pair[0] != pair[1]) ++torn;
            }
        };
        {
            Crowd crowd;
            for (int i = 0; i < 20; ++i) crowd.emplace_back(read);
            for (int i = 0; i < writers; ++i) crowd.emplace_back(write);
            EXPECT_TRUE(written.Wait(long_time_ms));
            writing = 0;
        }
        EXPECT_EQ(torn, 0);
        EXPECT_THAT(pair, testing::Each(writers * writes));
        EXPECT_TRUE(is_free(lock));
    }
}

TEST(CEvent, StaysSignalledUntilResetOrLetsOneThrough) {
    for (const bool manual : {true, false}) {
        SCOPED_TRACE(manual ? "manual reset" : "automatic reset");
        CEvent event(manual, true);
        EXPECT_TRUE(event.Wait(0));
        EXPECT_EQ(event.Wait(short_time_ms), manual);
        event.Set();
        event.Set();
        EXPECT_TRUE(event.Wait());
        EXPECT_EQ(event.Wait(0), manual);
        event.Set();
        event.Reset();
        EXPECT_FALSE(event.Wait(0));
    }
}

// A reset right after the signal used to keep most of those asleep who had waited for it, and whoever came then took
// the signal of one who had not woken yet.
TEST(CEvent, ReleasesWhoWaitedWhateverFollows) {
    constexpr int sleepers = 8;
    for (const bool manual : {true, false}) {
        SCOPED_TRACE(manual ? "manual reset" : "automatic reset");
        CEvent event(manual);
        CSemaphore woken(0, sleepers);
        std::atomic<int> about_to_wait{0};
        Crowd crowd;
        for (int i = 0; i < sleepers; ++i) {
            crowd.emplace_back([&] {
                ++about_to_wait;
                event.Wait(long_time_ms);
                woken.Release();
            });
        }
        while (about_to_wait < sleepers) std::this_thread::yield();
        EXPECT_FALSE(woken.Wait(5 * short_time_ms));  // time to fall asleep in
        for (int i = 0; i < (manual ? 1 : sleepers); ++i) event.Set();
        event.Reset();
        EXPECT_FALSE(event.Wait(0)) << "the signals are for those who waited";
        for (int i = 0; i < sleepers; ++i) EXPECT_TRUE(woken.Wait(long_time_ms / 2)) << i;
    }
}

TEST(CSemaphore, RejectsCountsThatItCannotKeep) {
    for (const auto& [initial, maximum] : {std::pair{0u, 0u}, {2u, 1u}, {0u, 0x80000000u}}) {
        CSemaphore impossible(initial, maximum);
        EXPECT_FALSE(impossible.IsValid()) << maximum;
        EXPECT_FALSE(impossible.Release()) << maximum;
        EXPECT_FALSE(impossible.Wait()) << maximum;
    }
    CSemaphore semaphore(1, 3);
    for (const std::uint32_t count : {3u, 0u, 0xFFFFFFFFu}) EXPECT_FALSE(semaphore.Release(count)) << count;
    EXPECT_TRUE(semaphore.Release(2));
    for (int i = 0; i < 3; ++i) EXPECT_TRUE(semaphore.Wait(0)) << i;
    EXPECT_FALSE(semaphore.Wait(short_time_ms));
}

TEST(CSemaphore, HandsOutEachCountExactlyOnce) {
    constexpr int turns = 5'000;
    CSemaphore semaphore(0, 4 * turns);
    std::atomic<int> taken{0};
    run_together(8, [&](std::size_t id) {
        for (int turn = 0; turn < turns; ++turn) {
            if (id % 2 == 0) semaphore.Release();
            if (id % 2 == 1 && semaphore.Wait(long_time_ms)) ++taken;
        }
    });
    EXPECT_EQ(taken, 4 * turns);
    EXPECT_FALSE(semaphore.Wait(0));
}

}  // namespace
}  // namespace mt

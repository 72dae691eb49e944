#include <engine/kernel/multithreading.h>
#include <gmock/gmock.h>

#include <array>
#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

namespace mt {
namespace {

constexpr std::uint32_t long_time_ms = 60'000;
constexpr std::uint32_t short_time_ms = 20;

template <typename T>
constexpr bool is_fixed = !std::is_copy_constructible_v<T> && !std::is_move_constructible_v<T>;
static_assert(is_fixed<CCriticalSection> && is_fixed<CSlimLock> && is_fixed<CEvent> && is_fixed<CSemaphore>);
static_assert(!std::is_copy_constructible_v<CThread> && std::is_nothrow_move_constructible_v<CThread>);

/// Runs a function on a thread of its own, and waits for its end.
class Worker {
public:
    explicit Worker(std::function<void()> work, int priority = 0) : work_(std::move(work)) {
        const auto run = [](void* self) { static_cast<Worker*>(self)->work_(); };
        EXPECT_TRUE(thread_.Start("a worker with a long name", run, this, priority));
    }
    void join() { thread_.Join(); }

private:
    std::function<void()> work_;
    CThread thread_;
};
using Crowd = std::vector<std::unique_ptr<Worker>>;

TEST(CThread, StandsForOneThreadAtATimeAndMovesWithIt) {
    CEvent go(true);
    std::atomic<int> passed{0};
    struct Both {
        CEvent& go;
        std::atomic<int>& passed;
    } both{go, passed};
    const CThread::Entry pass = [](void* argument) {
        auto& shared = *static_cast<Both*>(argument);
        shared.go.Wait();
        ++shared.passed;
    };
    {
        CThread thread;
        EXPECT_FALSE(thread.Start("nothing to run", nullptr, nullptr));
        ASSERT_TRUE(thread.Start(nullptr, pass, &both));
        EXPECT_FALSE(thread.Start("second", pass, &both));
        CThread other(std::move(thread));
        EXPECT_FALSE(thread.IsStarted());
        EXPECT_TRUE(other.IsStarted());
        ASSERT_TRUE(thread.Start("second", pass, &both, 99));
        EXPECT_EQ(passed, 0);
        go.Set();
        other = std::move(thread);  // joins the first; the destructor joins the second
        EXPECT_GE(passed, 1);
    }
    EXPECT_EQ(passed, 2);
}

TEST(CThread, RunsAtAnyPriority) {
    for (int priority = -2; priority <= 2; ++priority) {
        std::uint64_t id = 0;
        Worker([&] { id = CThread::CurrentId(); }, priority).join();
        EXPECT_NE(id, 0u) << priority;
        EXPECT_NE(id, CThread::CurrentId()) << priority;
    }
}

TEST(CThreadLocal, GivesEachThreadItsOwnPointerStartingWithNull) {
    CThreadLocalPointer<int> slot;
    ASSERT_TRUE(slot.IsValid());
    int mine = 0;
    int others = 0;
    slot.Set(&mine);
    Worker([&] {
        EXPECT_EQ(slot.Get(), nullptr);
        slot.Set(&others);
        EXPECT_EQ(slot.Get(), &others);
    }).join();
    EXPECT_EQ(slot.Get(), &mine);
}

TEST(CCriticalSection, IsLeftAsOftenAsItWasEntered) {
    CCriticalSection section;
    const auto other_thread_enters = [&] {
        bool entered = false;
        Worker([&] { entered = std::unique_lock(section, std::try_to_lock).owns_lock(); }).join();
        return entered;
    };
    {
        const std::lock_guard outer(section);
        {
            const std::lock_guard inner(section);
            EXPECT_FALSE(other_thread_enters());
        }
        EXPECT_FALSE(other_thread_enters());
    }
    EXPECT_TRUE(other_thread_enters());
}

TEST(CSlimLock, LetsReadersShareAndAWriterBeAlone) {
    CSlimLock lock;
    const auto try_alone = [&] { return std::unique_lock(lock, std::try_to_lock).owns_lock(); };
    std::atomic<bool> reader_was_in{false};
    const auto read = [&] {
        const std::shared_lock guard(lock);
        reader_was_in = true;
    };
    {
        const std::shared_lock guard(lock);
        EXPECT_FALSE(try_alone());
        Worker(read).join();  // would hang if readers did not share
    }
    reader_was_in = false;
    std::unique_lock alone(lock);
    EXPECT_FALSE(try_alone());
    Worker reader(read);
    for (int i = 0; i < 1000; ++i) std::this_thread::yield();
    EXPECT_FALSE(reader_was_in);
    alone.unlock();
    reader.join();
    EXPECT_TRUE(reader_was_in);
    EXPECT_TRUE(try_alone());
}

// Everybody who sleeps must be woken, and a lost wake shows only in a crowd: readers and writers of different rhythm
// fight for one lock, which sleeps, wakes and hands over all the time.
TEST(CSlimLock, KeepsACrowdConsistentAndLosesNoWake) {
    constexpr int writes = 3000;
    CSlimLock lock;
    std::array<int, 2> pair{};
    std::atomic<int> torn{0};
    const auto write = [&] {
        for (int i = 0; i < writes; ++i) {
            const std::lock_guard guard(lock);
            ++pair[0];
            if (i % 64 == 0) std::this_thread::yield();
            ++pair[1];
        }
    };
    const auto read = [&] {
        for (int i = 0; i < writes; ++i) {
            const std::shared_lock guard(lock);
            if (i % 16 == 0) std::this_thread::yield();
            if (pair[0] != pair[1]) ++torn;
        }
    };
    {
        Crowd crowd;
        for (int i = 0; i < 4; ++i) crowd.push_back(std::make_unique<Worker>(write));
        for (int i = 0; i < 8; ++i) crowd.push_back(std::make_unique<Worker>(read));
    }
    EXPECT_EQ(torn, 0);
    EXPECT_THAT(pair, testing::Each(4 * writes));
    EXPECT_TRUE(std::unique_lock(lock, std::try_to_lock).owns_lock());
}

TEST(CSlimLock, LetsAWriterInAmongTwentyReadersThatNeverPause) {
    CSlimLock lock;
    std::atomic<bool> stop{false};
    CEvent written(true);
    Crowd readers;
    for (int i = 0; i < 20; ++i) {
        readers.push_back(std::make_unique<Worker>([&] {
            while (!stop) {
                const std::shared_lock guard(lock);
                for (int step = 0; step < 10; ++step) std::this_thread::yield();
            }
        }));
    }
    Worker writer([&] {
        for (int i = 0; i < 20; ++i) const std::lock_guard guard(lock);
        written.Set();
    });
    EXPECT_TRUE(written.Wait(long_time_ms));
    stop = true;
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

// A reset right after the signal used to keep most of those asleep who had waited for it.
TEST(CEvent, ReleasesWhoWaitedWhateverFollows) {
    constexpr int sleepers = 4;
    for (const bool manual : {true, false}) {
        SCOPED_TRACE(manual ? "manual reset" : "automatic reset");
        CEvent event(manual);
        CSemaphore woken(0, sleepers);
        std::atomic<int> about_to_wait{0};
        Crowd crowd;
        for (int i = 0; i < sleepers; ++i) {
            crowd.push_back(std::make_unique<Worker>([&] {
                ++about_to_wait;
                event.Wait(long_time_ms);
                woken.Release();
            }));
        }
        while (about_to_wait < sleepers) std::this_thread::yield();
        EXPECT_FALSE(woken.Wait(short_time_ms));  // time to fall asleep in
        for (int i = 0; i < (manual ? 1 : sleepers); ++i) event.Set();
        event.Reset();
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
    constexpr int counts = 20'000;
    constexpr int takers = 4;
    CSemaphore semaphore(0, counts + takers);
    std::atomic<int> left{counts};
    std::atomic<int> taken{0};
    Crowd crowd;
    for (int i = 0; i < takers; ++i) {
        crowd.push_back(std::make_unique<Worker>([&] {
            while (semaphore.Wait() && left.fetch_sub(1) > 0) ++taken;
        }));
    }
    for (int i = 0; i < counts; ++i) semaphore.Release();
    semaphore.Release(takers);  // one more for each, which ends it
    crowd.clear();
    EXPECT_EQ(taken, counts);
    EXPECT_FALSE(semaphore.Wait(0));
}

}  // namespace
}  // namespace mt

#include "engine/platform/sync.h"

#include <gmock/gmock.h>

#include <array>
#include <functional>
#include <memory>
#include <vector>

#include "engine/platform/clock.h"

namespace platform {
namespace {

constexpr std::uint32_t long_time_ms = 60'000;
constexpr std::uint32_t short_time_ms = 20;

struct SectionDeleter {
    void operator()(CriticalSection* section) const { destroy_critical_section(section); }
    void operator()(Event* event) const { destroy_event(event); }
    void operator()(Semaphore* semaphore) const { destroy_semaphore(semaphore); }
};
using OwnedSection = std::unique_ptr<CriticalSection, SectionDeleter>;
using OwnedEvent = std::unique_ptr<Event, SectionDeleter>;
using OwnedSemaphore = std::unique_ptr<Semaphore, SectionDeleter>;

// Runs a function on a thread of the seam, and waits for it at the end.
class Worker {
public:
    explicit Worker(std::function<void()> work, int priority = 0) : work_(std::move(work)) {
        thread_ = start_thread("test worker with a long name", priority, run, this);
    }
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;
    ~Worker() { join(); }
    void join() {
        if (thread_ != nullptr) join_thread(std::exchange(thread_, nullptr));
    }

private:
    static void run(void* self) { static_cast<Worker*>(self)->work_(); }
    std::function<void()> work_;
    Thread* thread_ = nullptr;
};

TEST(SlimLock, LetsReadersShareAndAWriterBeAlone) {
    SlimLock lock;
    lock_shared(lock);
    EXPECT_FALSE(try_lock_exclusive(lock));
    Worker([&] {
        lock_shared(lock);  // would hang if readers did not share
        unlock_shared(lock);
    }).join();
    unlock_shared(lock);

    ASSERT_TRUE(try_lock_exclusive(lock));
    EXPECT_FALSE(try_lock_exclusive(lock));
    std::atomic<bool> reader_was_in{false};
    Worker reader([&] {
        lock_shared(lock);
        reader_was_in = true;
        unlock_shared(lock);
    });
    for (int i = 0; i < 1000; ++i) yield_thread();
    EXPECT_FALSE(reader_was_in);
    unlock_exclusive(lock);
    reader.join();
    EXPECT_TRUE(reader_was_in);
}

// Everybody who sleeps must be woken, and a lost wake shows only in a crowd: readers and writers of different rhythm
// fight for one lock, which sleeps, wakes and hands over all the time.
TEST(SlimLock, KeepsACrowdConsistentAndLosesNoWake) {
    constexpr int writes = 3000;
    SlimLock lock;
    std::array<long, 2> pair{};
    std::atomic<long> torn{0};
    const auto write = [&] {
        for (int i = 0; i < writes; ++i) {
            lock_exclusive(lock);
            ++pair[0];
            if (i % 64 == 0) yield_thread();
            ++pair[1];
            unlock_exclusive(lock);
        }
    };
    const auto read = [&] {
        for (int i = 0; i < writes; ++i) {
            lock_shared(lock);
            if (i % 16 == 0) yield_thread();
            if (pair[0] != pair[1]) ++torn;
            unlock_shared(lock);
        }
    };
    {
        std::vector<std::unique_ptr<Worker>> crowd;
        for (int i = 0; i < 4; ++i) crowd.push_back(std::make_unique<Worker>(write));
        for (int i = 0; i < 8; ++i) crowd.push_back(std::make_unique<Worker>(read));
    }
    EXPECT_EQ(torn, 0);
    EXPECT_THAT(pair, testing::Each(4 * writes));
    EXPECT_TRUE(try_lock_exclusive(lock));
}

TEST(SlimLock, LetsAWriterInAmongTwentyReadersThatNeverPause) {
    SlimLock lock;
    std::atomic<bool> stop{false};
    const OwnedEvent written(create_event(true, false));
    std::vector<std::unique_ptr<Worker>> readers;
    for (int i = 0; i < 20; ++i) {
        readers.push_back(std::make_unique<Worker>([&] {
            while (!stop) {
                lock_shared(lock);
                for (int hold = 0; hold < 10; ++hold) yield_thread();
                unlock_shared(lock);
            }
        }));
    }
    Worker writer([&] {
        for (int i = 0; i < 20; ++i) {
            lock_exclusive(lock);
            unlock_exclusive(lock);
        }
        set_event(written.get());
    });
    EXPECT_TRUE(wait_event(written.get(), long_time_ms));
    stop = true;
}

TEST(CriticalSection, IsLeftAsOftenAsItWasEntered) {
    const OwnedSection section(create_critical_section());
    const auto other_thread_enters = [&] {
        bool entered = false;
        Worker([&] {
            entered = try_enter(section.get());
            if (entered) leave(section.get());
        }).join();
        return entered;
    };
    enter(section.get());
    EXPECT_TRUE(try_enter(section.get()));
    EXPECT_FALSE(other_thread_enters());
    leave(section.get());
    EXPECT_FALSE(other_thread_enters());
    leave(section.get());
    EXPECT_TRUE(other_thread_enters());
}

TEST(Event, StaysSignalledUntilResetOrLetsOneThrough) {
    for (const bool manual : {true, false}) {
        SCOPED_TRACE(manual ? "manual reset" : "automatic reset");
        const OwnedEvent event(create_event(manual, true));
        EXPECT_TRUE(wait_event(event.get(), 0));
        EXPECT_EQ(wait_event(event.get(), 0), manual);
        set_event(event.get());
        set_event(event.get());
        EXPECT_TRUE(wait_event(event.get(), wait_forever));
        EXPECT_EQ(wait_event(event.get(), 0), manual);
        set_event(event.get());
        reset_event(event.get());
        EXPECT_FALSE(wait_event(event.get(), 0));
    }
}

TEST(Event, WaitsAsLongAsItWasToldTo) {
    const OwnedEvent event(create_event(false, false));
    const std::uint64_t start = steady_ns();
    EXPECT_FALSE(wait_event(event.get(), short_time_ms));
    // Windows counts in ticks of a clock of its own.
    EXPECT_GE(steady_ns() - start, (short_time_ms - 16) * 1'000'000ull);
}

TEST(Event, WakesOneSleeperForEachSignalOrAllAtOnce) {
    for (const bool manual : {true, false}) {
        SCOPED_TRACE(manual ? "manual reset" : "automatic reset");
        const OwnedEvent event(create_event(manual, false));
        const OwnedSemaphore woken(create_semaphore(0, 3));
        const auto sleep = [&] {
            wait_event(event.get(), wait_forever);
            release_semaphore(woken.get(), 1);
        };
        Worker first(sleep);
        Worker second(sleep);
        Worker third(sleep);
        set_event(event.get());
        EXPECT_TRUE(wait_semaphore(woken.get(), long_time_ms));
        for (int others = 0; others < 2; ++others) {
            if (!manual) {
                EXPECT_FALSE(wait_semaphore(woken.get(), short_time_ms));
                set_event(event.get());
            }
            EXPECT_TRUE(wait_semaphore(woken.get(), long_time_ms));
        }
    }
}

TEST(Semaphore, RefusesCountsThatItCannotHold) {
    EXPECT_EQ(create_semaphore(0, 0), nullptr);
    EXPECT_EQ(create_semaphore(2, 1), nullptr);
    EXPECT_EQ(create_semaphore(0, 0x80000000u), nullptr);
    const OwnedSemaphore semaphore(create_semaphore(1, 3));
    EXPECT_FALSE(release_semaphore(semaphore.get(), 3));
    EXPECT_FALSE(release_semaphore(semaphore.get(), 0));
    EXPECT_FALSE(release_semaphore(semaphore.get(), 0xFFFFFFFFu));
    EXPECT_TRUE(release_semaphore(semaphore.get(), 2));
    for (int i = 0; i < 3; ++i) EXPECT_TRUE(wait_semaphore(semaphore.get(), 0)) << i;
    EXPECT_FALSE(wait_semaphore(semaphore.get(), short_time_ms));
}

TEST(Semaphore, HandsOutEachCountExactlyOnce) {
    constexpr int counts = 20'000;
    constexpr int takers = 4;
    const OwnedSemaphore semaphore(create_semaphore(0, counts + takers));
    std::atomic<int> left{counts};
    std::atomic<int> taken{0};
    std::vector<std::unique_ptr<Worker>> crowd;
    for (int i = 0; i < takers; ++i) {
        crowd.push_back(std::make_unique<Worker>([&] {
            while (wait_semaphore(semaphore.get(), wait_forever) && left.fetch_sub(1) > 0) ++taken;
        }));
    }
    for (int i = 0; i < counts; ++i) release_semaphore(semaphore.get(), 1);
    release_semaphore(semaphore.get(), takers);  // one more for each, which ends it
    crowd.clear();
    EXPECT_EQ(taken, counts);
    EXPECT_FALSE(wait_semaphore(semaphore.get(), 0));
}

TEST(Thread, RunsAtAnyPriorityAndHasEndedWhenJoined) {
    for (int priority = -2; priority <= 2; ++priority) {
        std::uint64_t id = 0;
        Worker([&] { id = current_thread_id(); }, priority).join();
        EXPECT_NE(id, 0u) << priority;
        EXPECT_NE(id, current_thread_id()) << priority;
    }
}

TEST(ThreadSlot, KeepsOnePointerForEachThreadStartingWithNull) {
    ThreadSlot* const slot = create_thread_slot();
    ASSERT_NE(slot, nullptr);
    int mine = 0;
    int others = 0;
    set_thread_value(slot, &mine);
    Worker([&] {
        EXPECT_EQ(get_thread_value(slot), nullptr);
        set_thread_value(slot, &others);
        EXPECT_EQ(get_thread_value(slot), &others);
    }).join();
    EXPECT_EQ(get_thread_value(slot), &mine);
    destroy_thread_slot(slot);
}

}  // namespace
}  // namespace platform

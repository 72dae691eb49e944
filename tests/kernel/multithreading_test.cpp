#include <engine/kernel/multithreading.h>
#include <gmock/gmock.h>

#include <type_traits>
#include <utility>
#include <vector>

namespace mt {
namespace {

template <typename T>
constexpr bool is_fixed = !std::is_copy_constructible_v<T> && !std::is_move_constructible_v<T>;
static_assert(is_fixed<CCriticalSection> && is_fixed<CSlimLock> && is_fixed<CEvent> && is_fixed<CSemaphore>);
static_assert(!std::is_copy_constructible_v<CThread> && std::is_nothrow_move_constructible_v<CThread>);

// A thread that waits inside until it is let go.
struct Gate {
    CEvent inside{true};
    CEvent go{true};
    bool passed = false;

    static void Pass(void* self) {
        Gate& gate = *static_cast<Gate*>(self);
        gate.inside.Set();
        gate.go.Wait();
        gate.passed = true;
    }
};

TEST(CThread, IsJoinedByItsDestructor) {
    Gate gate;
    {
        CThread thread;
        ASSERT_TRUE(thread.Start("gate", Gate::Pass, &gate, 2));
        gate.inside.Wait();
        EXPECT_FALSE(gate.passed);
        gate.go.Set();
    }
    EXPECT_TRUE(gate.passed);
}

TEST(CThread, StandsForOneThreadAtATimeAndMovesWithIt) {
    Gate first;
    Gate second;
    CThread thread;
    EXPECT_FALSE(thread.Start("nothing to run", nullptr, nullptr));
    ASSERT_TRUE(thread.Start(nullptr, Gate::Pass, &first));
    EXPECT_FALSE(thread.Start("second", Gate::Pass, &second));

    CThread other(std::move(thread));
    EXPECT_FALSE(thread.IsStarted());
    EXPECT_TRUE(other.IsStarted());
    ASSERT_TRUE(thread.Start("second", Gate::Pass, &second));
    first.go.Set();
    second.go.Set();
    other = std::move(thread);  // joins the first
    EXPECT_TRUE(first.passed);
    other.Join();
    EXPECT_TRUE(second.passed);
    other.Join();
    EXPECT_FALSE(other.IsStarted());
}

TEST(CThreadLocal, GivesEachThreadItsOwnPointer) {
    struct Shared {
        CThreadLocalPointer<int> slot;
        int value = 1;
        int* at_first = &value;
        std::uint64_t id = 0;
    } shared;
    ASSERT_TRUE(shared.slot.IsValid());
    int mine = 2;
    shared.slot.Set(&mine);
    CThread thread;
    ASSERT_TRUE(thread.Start(
        "local",
        [](void* argument) {
            auto& data = *static_cast<Shared*>(argument);
            data.at_first = data.slot.Get();
            data.slot.Set(&data.value);
            data.id = CThread::CurrentId();
        },
        &shared));
    thread.Join();
    EXPECT_EQ(shared.at_first, nullptr);
    EXPECT_EQ(shared.slot.Get(), &mine);
    EXPECT_NE(shared.id, CThread::CurrentId());
}

TEST(Holds, GiveBackWhatTheyTook) {
    CSlimLock lock;
    {
        const CSharedHold one(lock);
        const CSharedHold two(lock);
        EXPECT_FALSE(lock.TryLockExclusive());
    }
    {
        const CExclusiveHold alone(lock);
        EXPECT_FALSE(lock.TryLockExclusive());
    }
    EXPECT_TRUE(lock.TryLockExclusive());

    struct Shared {
        CCriticalSection section;
        bool entered = false;
    } shared;
    const auto other_enters = [&shared] {
        CThread thread;
        thread.Start(
            "entering",
            [](void* argument) {
                auto& data = *static_cast<Shared*>(argument);
                data.entered = data.section.TryEnter();
                if (data.entered) data.section.Leave();
            },
            &shared);
        thread.Join();
        return shared.entered;
    };
    {
        const CSectionHold outer(shared.section);
        const CSectionHold inner(shared.section);
        EXPECT_FALSE(other_enters());
    }
    EXPECT_TRUE(other_enters());
}

TEST(CSemaphore, WithAnImpossibleCountAnswersFalse) {
    CSemaphore impossible(2, 1);
    EXPECT_FALSE(impossible.IsValid());
    EXPECT_FALSE(impossible.Release());
    EXPECT_FALSE(impossible.Wait());
    CSemaphore possible(1, 1);
    EXPECT_FALSE(possible.Release());
    EXPECT_TRUE(possible.Wait(0));
    EXPECT_TRUE(possible.Release());
}

TEST(CEvent, WaitsForASignal) {
    CEvent automatic(false, true);
    EXPECT_TRUE(automatic.IsValid());
    EXPECT_TRUE(automatic.Wait());
    EXPECT_FALSE(automatic.Wait(1));
    automatic.Set();
    automatic.Reset();
    EXPECT_FALSE(automatic.Wait(0));
}

}  // namespace
}  // namespace mt

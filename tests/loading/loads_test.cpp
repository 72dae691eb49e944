#include <gmock/gmock.h>

#include <future>

#include "engine/platform/error.h"
#include "tests/loading/load_test.h"

namespace {

using testing::ElementsAre;

class Loads : public LoadTest {};
class DiskUses : public LoadTest {};

TEST_F(Loads, WholeFilesAndRangesComeFromEverySource) {
    Mount();
    MountGated();
    gate_.open.Set();
    const std::string& text = *GatedSource::text;
    const std::pair<SFsLoadWish, std::string> rows[] = {
        {{.path = "small.bin"}, small_},
        {{.path = "LOOSE.bin"}, small_},
        {{.path = "big.bin"}, big_},
        {{.path = "big.bin", .offset = 19'000'001, .size = 5}, big_.substr(19'000'001, 5)},
        {{.path = "small.bin", .offset = 69'000, .size = ~std::uint64_t{0}}, small_.substr(69'000)},
        {{.path = "small.bin", .offset = 70'000}, ""},
        {{.path = "gated"}, text},
        {{.path = "endless"}, text},
        {{.path = "endless", .offset = 10, .size = 20}, text.substr(10, 20)}};
    for (auto [wish, expected] : rows) {
        const LoadPtr load = Ended(wish);
        EXPECT_EQ(load->Result(), EFSRequestResult::SUCCESS) << wish.path << ": " << load->Error().text;
        EXPECT_TRUE(load->Data() != nullptr && Text(*load) == expected) << wish.path;
        std::string buffer(expected.size(), '?');
        wish.buffer = buffer.data();
        wish.capacity = buffer.size();
        const LoadPtr second = Ended(wish);
        EXPECT_TRUE(second->Result() == EFSRequestResult::SUCCESS && buffer == expected) << wish.path;
        EXPECT_EQ(second->Take(), nullptr);
    }
}

TEST_F(Loads, EachFailureTravelsInItsLoad) {
    std::string bytes = read_file(*files_ / "p.pak");
    for (const std::size_t at : {bytes.size() / 2, bytes.size() - 10'000}) bytes[at] = static_cast<char>(~bytes[at]);
    write_file(*files_ / "damaged.pak", bytes);
    MountGated();
    fs::clear_error();
    EXPECT_FALSE(fs::exists("stops"));
    EXPECT_EQ(fs::last_error().code, EFSError::INVALID_ARGUMENT) << "and nothing was stopped by its trying";
    ASSERT_TRUE(fs::add_source((*files_ / "damaged.pak").c_str(), whole_tree));
    char buffer[4] = {'k', 'e', 'p', 't'};
    const std::pair<SFsLoadWish, EFSError::TYPE> rows[] = {
        {{.path = "none.bin"}, EFSError::NOT_FOUND},
        {{.path = "./"}, EFSError::INVALID_NAME},
        {{.path = "small.bin"}, EFSError::BAD_FORMAT},
        {{.path = "big.bin"}, EFSError::BAD_FORMAT},
        {{.path = "loose.bin", .offset = 70'001}, EFSError::INVALID_ARGUMENT},
        {{.path = "loose.bin", .offset = 69'999, .size = 2}, EFSError::INVALID_ARGUMENT},
        {{.path = "loose.bin", .buffer = buffer, .capacity = 4}, EFSError::TOO_LARGE},
        {{.path = "endless", .buffer = buffer, .capacity = 4}, EFSError::TOO_LARGE},
        {{.path = "shrunk"}, EFSError::IO},
        {{.path = "throws"}, EFSError::OUT_OF_MEMORY}};
    fs::clear_error();
    for (const auto& [wish, code] : rows) {
        const LoadPtr load = Ended(wish);
        EXPECT_EQ(load->Result(), EFSRequestResult::FAILED) << wish.path;
        EXPECT_EQ(load->Error().code, code) << wish.path << ": " << load->Error().text;
        EXPECT_TRUE(load->Data() == nullptr && load->Size() == 0 && load->Take() == nullptr);
    }
    EXPECT_EQ(std::string(buffer, 4), "kept");
    EXPECT_EQ(fs::last_error().code, EFSError::NONE) << "nothing of a load reaches the caller's thread";
    EXPECT_EQ(fs::load_async({.path = ""}), nullptr);
    EXPECT_EQ(fs::load_batch(nullptr, 0), nullptr);
    fs::shutdown();
    EXPECT_EQ(fs::load_async({.path = "loose.bin"}), nullptr);
    EXPECT_EQ(fs::last_error().code, EFSError::NOT_INITIALIZED);
    Start();
}

/// One worker is kept busy while the others queue up behind it.
TEST_F(Loads, AreServedByUrgencyDeadlinePriorityAndArrival) {
    MountGated();
    WorkAlone();
    for (const char* name : {"a", "b", "c", "d", "e", "f", "g"}) directory_.write(name, name);
    fs::refresh();
    const std::uint64_t missed_before = Statistics().missed_deadlines;
    const LoadPtr first = BeginGated();
    const SFsLoadWish wishes[] = {{.path = "a", .priority = EFSLoadPriority::BACKGROUND},
                                  {.path = "b"},
                                  {.path = "c", .deadline_ms = 60'000},
                                  {.path = "d", .priority = EFSLoadPriority::HIGH},
                                  {.path = "e", .priority = EFSLoadPriority::BACKGROUND, .deadline_ms = 1},
                                  {.path = "f", .priority = EFSLoadPriority::BACKGROUND},
                                  {.path = "g"}};
    std::vector<LoadPtr> loads;
    for (SFsLoadWish wish : wishes) {
        wish.callback = &Told::Note;
        wish.user = &told_;
        loads.push_back(Begin(wish));
    }
    EXPECT_THAT(Statistics().waiting, ElementsAre(3, 3, 1, 0));
    EXPECT_TRUE(loads[5]->Reprioritise(EFSLoadPriority::URGENT, 0));
    std::this_thread::sleep_for(std::chrono::milliseconds(5));  // the deadline of "e" passes
    gate_.open.Set();
    for (const LoadPtr& load : loads) EXPECT_TRUE(load->Wait());
    fs::shutdown();
    EXPECT_EQ(told_.names, "fedcbga");
    EXPECT_FALSE(loads[5]->Reprioritise(0, 0));
    EXPECT_EQ(Statistics().missed_deadlines, missed_before + 1);
    SFsLoadTimes times;
    loads[0]->Times(times);
    EXPECT_TRUE(times.waited >= 5000 && times.opening + times.reading < times.waited && times.aside == 0);
    Start();
}

TEST_F(Loads, ALongLoadGivesWayAndGoesOn) {
    Mount();
    WorkAlone();
    const LoadPtr big = Begin({.path = "big.bin"});
    while (big->State() == EFSRequestState::QUEUED) std::this_thread::yield();
    const LoadPtr urgent = Ended({.path = "small.bin", .priority = EFSLoadPriority::URGENT});
    EXPECT_NE(big->State(), EFSRequestState::FINISHED);
    EXPECT_TRUE(Text(*urgent) == small_);
    EXPECT_TRUE(big->Wait() && Text(*big) == big_);
    SFsLoadTimes times;
    big->Times(times);
    EXPECT_TRUE(times.opening != 0 && times.reading != 0 && times.aside != 0);
}

TEST_F(Loads, CancelEndsALoadThatWaitsAndRemovingASourceThatInHand) {
    GatedSource* const source = MountGated();
    WorkAlone();
    const LoadPtr load = BeginGated();
    const LoadPtr waiting = BeginCounted("loose.bin");
    EXPECT_TRUE(waiting->Cancel() && !waiting->Cancel());
    EXPECT_EQ(waiting->Result(), EFSRequestResult::CANCELLED);
    EXPECT_EQ(waiting->Error().code, EFSError::CANCELLED);
    const std::jthread opener = OpenGateSoon();
    EXPECT_TRUE(fs::rem_source(source));
    EXPECT_EQ(gate_.reads, 1);
    EXPECT_TRUE(load->Wait() && load->Result() == EFSRequestResult::CANCELLED);
    delete source;
}

/// A view lives on without its source, but the file that was read for it does not.
TEST_F(Loads, ASourceStaysUntilTheFilesReadFromItAreClosed) {
    GatedSource* const source = MountGated();
    gate_.open.Set();
    std::future<bool> removed;
    gate_.closing = [&] {
        removed = std::async(std::launch::async, [&] { return fs::rem_source(source); });
        EXPECT_EQ(removed.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
    };
    SFsView view;
    EXPECT_TRUE(fs::map("gated", view));
    EXPECT_TRUE(removed.get());
    delete source;
    fs::unmap(view);
}

/// One that was open and waited for room is nobody's while it is cancelled.
TEST_F(Loads, ShutdownWaitsForOneThatIsBeingCancelled) {
    MountGated();
    ASSERT_TRUE(fs::set_load_settings({.workers = 2, .no_urgent_lane = true, .block_bytes = 1}));
    const LoadPtr held = BeginGated();
    const LoadPtr aside = BeginCounted("gated");
    while (aside->State() == EFSRequestState::QUEUED || Statistics().in_hand != 1) std::this_thread::yield();
    mt::CEvent closing{true}, may_close{true};
    gate_.closing = [&, is_first = true]() mutable {
        if (!std::exchange(is_first, false)) return;
        closing.Set();
        may_close.Wait();
    };
    std::jthread canceller([&] { EXPECT_TRUE(aside->Cancel()); });
    closing.Wait();
    gate_.open.Set();
    std::jthread stopper([] { fs::shutdown(); });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    may_close.Set();
    canceller.join();
    stopper.join();
    EXPECT_EQ(told_.count, 2);
    Start();
}

/// A new lane took the place of the old one and was never woken.
TEST_F(Loads, UrgentOnesAreServedWhileTheWorkersAreBusyHoweverOftenTheyWereReplaced) {
    MountGated();
    for (int turn = 0; turn < 100; ++turn) {
        gate_.open.Reset();
        gate_.reached.Reset();
        const LoadPtr held = BeginGated();
        EXPECT_TRUE(Begin({.path = "loose.bin", .priority = EFSLoadPriority::URGENT})->Wait(10'000));
        gate_.open.Set();
        ASSERT_TRUE(fs::set_load_settings({.workers = 1}));
    }
}

/// Either may be the one that sees to the end.
TEST_F(Loads, TwoCallbacksMayShutDownAtOnce) {
    struct Meeting {
        std::atomic<int> here{0}, left{0};
    };
    const auto shut_down = [](SFsLoad*, void* user) {
        auto& its = *static_cast<Meeting*>(user);
        for (++its.here; its.here < 2;) std::this_thread::yield();
        fs::shutdown();
        ++its.left;
    };
    for (int turn = 0; turn < 200; ++turn) {
        ASSERT_TRUE(fs::set_load_settings({.workers = 2, .no_urgent_lane = true}));
        Meeting meeting;
        const SFsLoadWish wish{.path = "loose.bin", .callback = shut_down, .user = &meeting};
        const LoadPtr first = Begin(wish), second = Begin(wish);
        while (meeting.left < 2) std::this_thread::yield();
        Start();
    }
}

TEST_F(Loads, ShutdownTellsEachOfAHundredThousandOnce) {
    const std::vector<SFsLoadWish> wishes(100'000, {.path = "none.bin", .callback = &Told::Count, .user = &told_});
    for (const bool polled : {false, true}) {
        Mount();
        fs::set_polled_callbacks(polled);
        told_.count = 0;
        std::vector<LoadPtr> loads;
        for (int i = 0; i < 50; ++i) loads.push_back(BeginCounted("big.bin"));
        const BatchPtr batch(fs::load_batch(wishes.data(), wishes.size()));
        fs::shutdown();
        EXPECT_EQ(told_.count, 100'050);
        EXPECT_EQ(batch->Left(), 0u);
        for (const LoadPtr& load : loads) EXPECT_EQ(load->State(), EFSRequestState::FINISHED);
        Start();
    }
}

/// Forbids this thread the disk and notes each use that it makes of it.
struct NotedDisk {
    NotedDisk() {
        fs::set_disk_report(&Note, this);
        fs::forbid_disk(true);
    }
    ~NotedDisk() {
        fs::forbid_disk(false);
        fs::set_disk_report(nullptr, nullptr);
    }
    static void Note(const SFsDiskUse& use, void* user) {
        static_cast<NotedDisk*>(user)->told.push_back(std::string(use.action) + " " + use.name);
        fs::string ignored;
        fs::load_text_file(ignored, "loose.bin");  // not counted
    }
    std::vector<std::string> told;
};

/// Each use is told once, by what is outermost; other threads, and questions that tables answer, are not.
TEST_F(DiskUses, OfAThreadThatMustNotAreTold) {
    fs::string text;
    NotedDisk uses;
    EXPECT_TRUE(fs::exists("loose.bin"));
    EXPECT_TRUE(fs::load_text_file(text, "loose.bin") && text == small_.c_str());
    EXPECT_EQ(fs::open("none.bin", EFSMode::READ), nullptr);
    EXPECT_EQ(fs::last_error().code, EFSError::NOT_FOUND);
    fs::refresh("loose.bin");
    std::thread([&] { fs::load_text_file(text, "loose.bin"); }).join();
    fs::forbid_disk(false);
    fs::load_text_file(text, "loose.bin");
    EXPECT_THAT(uses.told, ElementsAre("opened loose.bin", "read loose.bin", "opened none.bin", "listed loose.bin"));
}

/// They run on the caller, one at a time, and tell it nothing but by themselves.
TEST_F(Loads, NeedNoThreads) {
    platform::inject_fault(platform::FaultPoint::THREAD, 1, platform::Failure::OTHER, true);
    auto uses = std::make_unique<NotedDisk>();
    fs::clear_error();
    const auto load_another = [](SFsLoad* load, void* user) {
        const LoadPtr another(fs::load_async({.path = "none.bin", .callback = &Told::Count, .user = user}));
        EXPECT_TRUE(!another->Wait() && another->State() == EFSRequestState::QUEUED && Text(*load) == small_);
    };
    const LoadPtr load = Begin({.path = "loose.bin", .callback = load_another, .user = &told_});
    EXPECT_EQ(load->State(), EFSRequestState::FINISHED);
    EXPECT_EQ(told_.count, 1);
    EXPECT_EQ(fs::last_error().code, EFSError::NONE);
    EXPECT_THAT(uses->told, ElementsAre("opened loose.bin", "read loose.bin", "opened none.bin"));
    uses.reset();
    platform::clear_faults();
    EXPECT_EQ(Text(*Ended({.path = "loose.bin"})), small_);
}

TEST_F(Loads, ThatWaitedForAWorkerAreServedWhenNoneTakesItsPlace) {
    MountGated();
    WorkAlone();
    const LoadPtr held = BeginGated();
    const LoadPtr waiting = Begin({.path = "loose.bin"});
    platform::inject_fault(platform::FaultPoint::THREAD, 1, platform::Failure::OTHER, true);
    const std::jthread opener = OpenGateSoon();
    EXPECT_TRUE(fs::set_load_settings({.workers = 2}));
    platform::clear_faults();
    EXPECT_TRUE(waiting->Wait(10'000) && Text(*waiting) == small_);
    EXPECT_TRUE(held->Wait(10'000) && Text(*held) == *GatedSource::text);
}

/// What a callback may do: load, cancel its neighbour, remove a source, be the last to know its load, shut down.
TEST_F(Loads, CallbacksMayDoAllButWait) {
    struct Host {
        LoadPtr neighbour;
        std::string pack = *files_ / "p.pak";
        mt::CEvent done{true};
    };
    const auto do_all = [](SFsLoad*, void* user) {
        auto& its = *static_cast<Host*>(user);
        EXPECT_FALSE(LoadPtr(fs::load_async({.path = "loose.bin"}))->Wait());
        EXPECT_TRUE(its.neighbour->Cancel() && fs::rem_source(its.pack.c_str()));
        fs::shutdown();
        its.done.Set();
    };
    for (const bool polled : {false, true}) {
        Host host;
        Mount();
        ASSERT_TRUE(fs::set_load_settings({.workers = 1}));
        fs::set_polled_callbacks(true);
        Ended({.path = "small.bin", .callback = do_all, .user = &host});
        host.neighbour = Begin({.path = "big.bin", .priority = EFSLoadPriority::BACKGROUND});
        if (polled)
            EXPECT_EQ(fs::poll_loads(1), 1u);
        else
            fs::set_polled_callbacks(false);
        ASSERT_TRUE(host.done.Wait(10'000));
        Start();
    }
}

TEST_F(Loads, ABatchIsToldOfOnceAndInTheOrderOfItsPack) {
    Mount();
    fs::set_polled_callbacks(true);
    SFsLoadWish wishes[] = {{.path = "small.bin"}, {.path = "none.bin"}, {.path = "big.bin"}};
    for (SFsLoadWish& wish : wishes) {
        wish.callback = &Told::Count;
        wish.user = &told_;
    }
    const auto count_batch = [](SFsLoadBatch* ended, void* user) {
        static_cast<Told*>(user)->count += 100 * static_cast<int>(ended->Count());
    };
    const BatchPtr batch(fs::load_batch(wishes, 3, count_batch, &told_));
    ASSERT_TRUE(batch != nullptr && batch->Wait());
    EXPECT_EQ(fs::poll_loads(2), 2u);
    EXPECT_EQ(told_.count, 2);
    EXPECT_EQ(fs::poll_loads(100), 1u);
    EXPECT_EQ(told_.count, 303);
    EXPECT_TRUE(batch->Left() == 0 && batch->At(3) == nullptr);
    EXPECT_TRUE(Text(*batch->At(0)) == small_ && Text(*batch->At(2)) == big_);
    EXPECT_EQ(batch->At(1)->Error().code, EFSError::NOT_FOUND);
    EXPECT_EQ(Statistics().block_bytes, small_.size() + big_.size());
    const SFsLoadWish silent{.path = "small.bin"};
    EXPECT_TRUE(BatchPtr(fs::load_batch(&silent, 1))->Wait());
    fs::set_load_settings({});
    EXPECT_EQ(Statistics().block_bytes, small_.size() + big_.size()) << "nobody polls for what tells nobody";
    wishes[1].path = "";
    EXPECT_EQ(fs::load_batch(wishes, 2), nullptr);
}

}  // namespace

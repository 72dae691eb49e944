#include <gmock/gmock.h>

#include <cstdlib>
#include <thread>

#include "tests/loading/load_test.h"

namespace {

using testing::ElementsAre;

class Loads : public LoadTest {};

TEST_F(Loads, WholeFilesAndRangesComeFromEverySource) {
    Mount();
    MountGated();
    gate_.open.Set();
    struct Row {
        SFsLoadWish wish;
        std::string expected;
    };
    const std::string& endless = GatedSource::text;
    const Row rows[] = {{{.path = "small.bin"}, small_},
                        {{.path = "LOOSE.bin"}, small_},
                        {{.path = "big.bin"}, big_},
                        {{.path = "big.bin", .offset = 19'000'001, .size = 5}, big_.substr(19'000'001, 5)},
                        {{.path = "small.bin", .offset = 69'000, .size = ~std::uint64_t{0}}, small_.substr(69'000)},
                        {{.path = "small.bin", .offset = 70'000}, ""},
                        {{.path = "gated"}, endless},
                        {{.path = "endless"}, endless},
                        {{.path = "endless", .offset = 10, .size = 20}, endless.substr(10, 20)}};
    for (const Row& row : rows) {
        SFsLoad* const load = Ended(row.wish);
        EXPECT_EQ(load->Result(), EFSRequestResult::SUCCESS) << row.wish.path << ": " << load->Error().text;
        EXPECT_TRUE(Text(*load) == row.expected) << row.wish.path;
        load->Release();
        std::string buffer(row.expected.size(), '?');
        SFsLoadWish into = row.wish;
        into.buffer = buffer.data();
        into.capacity = buffer.size();
        SFsLoad* const second = Ended(into);
        EXPECT_TRUE(second->Result() == EFSRequestResult::SUCCESS && buffer == row.expected) << row.wish.path;
        EXPECT_EQ(second->Take(), nullptr);
        second->Release();
    }
}

TEST_F(Loads, EachFailureTravelsInItsLoad) {
    Mount();
    MountGated();
    char buffer[4] = {'k', 'e', 'p', 't'};
    struct Row {
        SFsLoadWish wish;
        EFSError::TYPE code;
    };
    const Row rows[] = {{{.path = "none.bin"}, EFSError::NOT_FOUND},
                        {{.path = "./"}, EFSError::INVALID_NAME},
                        {{.path = "small.bin", .offset = 70'001}, EFSError::INVALID_ARGUMENT},
                        {{.path = "small.bin", .offset = 69'999, .size = 2}, EFSError::INVALID_ARGUMENT},
                        {{.path = "small.bin", .buffer = buffer, .capacity = 4}, EFSError::TOO_LARGE},
                        {{.path = "endless", .buffer = buffer, .capacity = 4}, EFSError::TOO_LARGE},
                        {{.path = "shrunk"}, EFSError::IO},
                        {{.path = "throws"}, EFSError::OUT_OF_MEMORY}};
    fs::clear_error();
    for (const Row& row : rows) {
        SFsLoad* const load = Ended(row.wish);
        EXPECT_EQ(load->Result(), EFSRequestResult::FAILED) << row.wish.path;
        EXPECT_EQ(load->Error().code, row.code) << row.wish.path << ": " << load->Error().text;
        EXPECT_TRUE(load->Data() == nullptr && load->Size() == 0 && load->Take() == nullptr);
        load->Release();
    }
    EXPECT_EQ(std::string(buffer, 4), "kept");
    EXPECT_EQ(fs::last_error().code, EFSError::NONE) << "nothing of a load reaches the caller's thread";
    EXPECT_EQ(fs::load_async({.path = ""}), nullptr);
    EXPECT_EQ(fs::load_batch(nullptr, 0), nullptr);
    fs::shutdown();
    EXPECT_EQ(fs::load_async({.path = "small.bin"}), nullptr);
    EXPECT_EQ(fs::last_error().code, EFSError::NOT_INITIALIZED);
    Start();
}

/// One worker is kept busy while the others queue up behind it.
TEST_F(Loads, AreServedByUrgencyDeadlinePriorityAndArrival) {
    MountGated();
    ASSERT_TRUE(fs::set_load_settings({.workers = 1, .no_urgent_lane = true}));
    for (const char* name : {"a", "b", "c", "d", "e", "f", "g"}) directory_.write(name, name);
    fs::refresh();
    SFsLoad* const first = fs::load_async({.path = "gated", .priority = EFSLoadPriority::URGENT});
    ASSERT_TRUE(gate_.reached.Wait(10'000));
    const SFsLoadWish wishes[] = {{.path = "a", .priority = EFSLoadPriority::BACKGROUND},
                                  {.path = "b"},
                                  {.path = "c", .deadline_ms = 60'000},
                                  {.path = "d", .priority = EFSLoadPriority::HIGH},
                                  {.path = "e", .priority = EFSLoadPriority::BACKGROUND, .deadline_ms = 1},
                                  {.path = "f", .priority = EFSLoadPriority::BACKGROUND},
                                  {.path = "g"}};
    std::vector<SFsLoad*> loads;
    for (SFsLoadWish wish : wishes) {
        wish.callback = &Told::Note;
        wish.user = &told_;
        loads.push_back(fs::load_async(wish));
    }
    SFsLoadStatistics statistics;
    fs::get_load_statistics(statistics);
    EXPECT_THAT(statistics.waiting, ElementsAre(3, 3, 1, 0));
    EXPECT_TRUE(loads[5]->Reprioritise(EFSLoadPriority::URGENT, 0));
    std::this_thread::sleep_for(std::chrono::milliseconds(5));  // the deadline of "e" passes
    gate_.open.Set();
    for (SFsLoad* load : loads) EXPECT_TRUE(load->Wait());
    fs::shutdown();
    EXPECT_THAT(told_.names, ElementsAre("f", "e", "d", "c", "b", "g", "a"));
    EXPECT_FALSE(loads[5]->Reprioritise(0, 0));
    for (SFsLoad* load : loads) load->Release();
    first->Release();
    Start();
}

TEST_F(Loads, ALongLoadGivesWayAndGoesOn) {
    Mount();
    ASSERT_TRUE(fs::set_load_settings({.workers = 1, .no_urgent_lane = true}));
    SFsLoad* const big = fs::load_async({.path = "big.bin", .callback = &Told::Note, .user = &told_});
    while (big->State() == EFSRequestState::QUEUED) std::this_thread::yield();
    SFsLoad* const urgent = Ended({.path = "small.bin", .priority = EFSLoadPriority::URGENT});
    EXPECT_NE(big->State(), EFSRequestState::FINISHED);
    EXPECT_TRUE(Text(*urgent) == small_);
    EXPECT_TRUE(big->Wait() && Text(*big) == big_);
    big->Release();
    urgent->Release();
}

TEST_F(Loads, CancelEndsALoadWhereverItStands) {
    Mount();
    MountGated();
    ASSERT_TRUE(fs::set_load_settings({.workers = 1, .no_urgent_lane = true}));
    SFsLoad* const held = fs::load_async({.path = "gated", .callback = &Told::Count, .user = &told_});
    ASSERT_TRUE(gate_.reached.Wait(10'000));
    SFsLoad* const waiting = fs::load_async({.path = "small.bin", .callback = &Told::Count, .user = &told_});
    EXPECT_TRUE(waiting->Cancel());
    EXPECT_EQ(waiting->Result(), EFSRequestResult::CANCELLED);
    EXPECT_EQ(waiting->Error().code, EFSError::CANCELLED);
    EXPECT_FALSE(waiting->Cancel());
    std::thread opener([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        gate_.open.Set();
    });
    EXPECT_TRUE(held->Cancel());  // waits for the read in hand
    EXPECT_TRUE(held->State() == EFSRequestState::FINISHED && held->Result() == EFSRequestResult::CANCELLED);
    opener.join();
    SFsLoad* const big = fs::load_async({.path = "big.bin", .callback = &Told::Count, .user = &told_});
    while (big->State() == EFSRequestState::QUEUED) std::this_thread::yield();
    EXPECT_TRUE(big->Cancel());
    fs::shutdown();
    EXPECT_EQ(told_.count, 3);
    for (SFsLoad* load : {held, waiting, big}) load->Release();
    Start();
}

TEST_F(Loads, TheBudgetHoldsLoadsBackAndNeverForGood) {
    Mount();
    ASSERT_TRUE(fs::set_load_settings({.workers = 2, .block_bytes = 100'000}));
    std::vector<SFsLoad*> loads;
    for (int i = 0; i < 20; ++i) loads.push_back(fs::load_async({.path = i % 5 == 0 ? "big.bin" : "small.bin"}));
    for (SFsLoad* load : loads) EXPECT_TRUE(load->Wait() && load->Result() == EFSRequestResult::SUCCESS);
    SFsLoadStatistics statistics;
    fs::get_load_statistics(statistics);
    EXPECT_EQ(statistics.block_bytes, 4 * big_.size() + 16 * small_.size());
    void* const taken = loads[0]->Take();
    EXPECT_TRUE(taken != nullptr && std::memcmp(taken, big_.data(), big_.size()) == 0);
    EXPECT_TRUE(loads[0]->Data() == nullptr && loads[0]->Take() == nullptr);
    std::free(taken);
    for (SFsLoad* load : loads) load->Release();
    do fs::get_load_statistics(statistics);  // a worker may be about to give its reference back
    while (statistics.block_bytes != 0);
}

TEST_F(Loads, RemovingASourceEndsItsLoadsFirst) {
    Mount();
    GatedSource* const source = MountGated();
    SFsLoad* const load = fs::load_async({.path = "gated", .callback = &Told::Count, .user = &told_});
    ASSERT_TRUE(gate_.reached.Wait(10'000));
    std::thread opener([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        gate_.open.Set();
    });
    EXPECT_TRUE(fs::rem_source(source));
    EXPECT_EQ(gate_.reads, 1);
    EXPECT_TRUE(load->Wait() && load->Result() == EFSRequestResult::CANCELLED);
    opener.join();
    delete source;
    load->Release();
    SFsLoad* const big = fs::load_async({.path = "big.bin"});
    while (big->State() == EFSRequestState::QUEUED) std::this_thread::yield();
    EXPECT_TRUE(fs::rem_source((*files_ / "p.pak").c_str()));
    EXPECT_TRUE(big->Wait());
    big->Release();
}

TEST_F(Loads, ShutdownTellsEveryLoadOnce) {
    for (const bool polled : {false, true}) {
        Mount();
        fs::set_polled_callbacks(polled);
        told_.count = 0;
        std::vector<SFsLoad*> loads;
        for (int i = 0; i < 50; ++i)
            loads.push_back(fs::load_async({.path = "big.bin", .callback = &Told::Count, .user = &told_}));
        fs::shutdown();
        EXPECT_EQ(told_.count, 50);
        for (SFsLoad* load : loads) {
            EXPECT_EQ(load->State(), EFSRequestState::FINISHED);
            load->Release();
        }
        Start();
    }
}

/// A source that is being asked cannot stop the library, and nothing may have been stopped by its trying.
TEST_F(Loads, GoOnAfterAShutdownThatFailed) {
    class Stopper final : public fs::ReadOnlySource {
        bool exists(const fs::path&) override {
            fs::shutdown();
            return false;
        }
        SFsFile* open_read(const fs::path&, FFSOpenFlags::FLAGS) override { return nullptr; }
    };
    fs::add_source(new Stopper, whole_tree);
    fs::clear_error();
    EXPECT_FALSE(fs::exists("none.bin"));
    EXPECT_TRUE(fs::is_initialized());
    EXPECT_EQ(fs::last_error().code, EFSError::INVALID_ARGUMENT);
    SFsLoad* const load = Ended({.path = "loose.bin"});
    EXPECT_TRUE(Text(*load) == small_);
    load->Release();
}

/// What a callback may do: load, cancel its neighbour, remove a source, be the last to know its load, shut down.
TEST_F(Loads, CallbacksMayDoAllButWait) {
    struct Host {
        SFsLoad* neighbour = nullptr;
        std::string pack;
        mt::CEvent done{true};
        bool waited = true;
        bool cancelled = false;
        bool removed = false;
    } host;
    Mount();
    MountGated();
    ASSERT_TRUE(fs::set_load_settings({.workers = 1}));
    host.pack = *files_ / "p.pak";
    const SFsLoadWish wish{.path = "small.bin",
                           .callback =
                               [](SFsLoad*, void* user) {
                                   auto& its = *static_cast<Host*>(user);
                                   SFsLoad* const other = fs::load_async({.path = "loose.bin"});
                                   its.waited = other->Wait();
                                   other->Release();
                                   its.cancelled = its.neighbour->Cancel();
                                   its.removed = fs::rem_source(its.pack.c_str());
                                   fs::shutdown();
                                   its.done.Set();
                               },
                           .user = &host};
    fs::set_polled_callbacks(true);
    SFsLoad* const load = Ended(wish);
    host.neighbour = fs::load_async({.path = "gated"});
    gate_.open.Set();
    host.neighbour->Wait();
    host.neighbour->Release();
    host.neighbour = fs::load_async({.path = "big.bin", .priority = EFSLoadPriority::BACKGROUND});
    load->Release();
    fs::set_polled_callbacks(false);
    ASSERT_TRUE(host.done.Wait(10'000));
    EXPECT_FALSE(host.waited);
    EXPECT_TRUE(host.cancelled && host.removed);
    host.neighbour->Release();
    Start();
}

TEST_F(Loads, ABatchIsToldOfOnceAndInTheOrderOfItsPack) {
    Mount();
    fs::set_polled_callbacks(true);
    SFsLoadWish wishes[] = {{.path = "small.bin"}, {.path = "none.bin"}, {.path = "big.bin"}};
    for (SFsLoadWish& wish : wishes) {
        wish.callback = &Told::Count;
        wish.user = &told_;
    }
    static std::atomic<int> batches_told{0};
    batches_told = 0;
    SFsLoadBatch* const batch = fs::load_batch(
        wishes, 3, [](SFsLoadBatch* ended, void* user) { batches_told += ended == *static_cast<SFsLoadBatch**>(user); },
        const_cast<SFsLoadBatch**>(&batch));
    ASSERT_TRUE(batch != nullptr && batch->Wait());
    EXPECT_EQ(fs::poll_loads(2), 2u);
    EXPECT_EQ(batches_told, 0);
    EXPECT_EQ(fs::poll_loads(100), 1u);
    EXPECT_EQ(told_.count, 3);
    EXPECT_EQ(batches_told, 1);
    EXPECT_TRUE(batch->Count() == 3 && batch->Left() == 0 && batch->At(3) == nullptr);
    EXPECT_TRUE(Text(*batch->At(0)) == small_ && Text(*batch->At(2)) == big_);
    EXPECT_EQ(batch->At(1)->Error().code, EFSError::NOT_FOUND);
    batch->Release();
    const SFsLoadWish with_empty[] = {{.path = "small.bin"}, {.path = ""}};
    EXPECT_EQ(fs::load_batch(with_empty, 2), nullptr);
}

}  // namespace

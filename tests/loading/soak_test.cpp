#include <cstdlib>
#include <random>
#include <string_view>

#include "tests/loading/load_test.h"
#include "tests/support/run_together.h"

namespace {

constexpr std::size_t hosts = 3;

/// ENGINE_SOAK_LOADS in all; few by default.
std::size_t soak_loads() {
    const char* const asked = std::getenv("ENGINE_SOAK_LOADS");
    return asked != nullptr ? std::strtoul(asked, nullptr, 10) : 3000;
}

/// A place for one load after the other, with a buffer that is written to when the load must no longer do so.
struct Slot {
    std::string buffer = std::string(70'000, '?');
    LoadPtr load;
    std::string_view expected;
};

class Soak : public LoadTest {
protected:
    /// Random loads with random ends.
    void Ask(unsigned seed, std::size_t rounds) {
        std::minstd_rand random(seed);
        std::vector<Slot> slots(30);
        for (std::size_t i = 0; i < rounds; ++i) {
            Slot& slot = slots[random() % slots.size()];
            if (slot.load != nullptr) End(slot, random() % 3 == 0);
            slot.load = BeginRandom(random, slot);
            if (i % 16 == 0) EXPECT_EQ(fs::root_path("loose.bin"), "loose.bin");
            if (i % 16 == 1) fs::free_names(fs::search("", nullptr, true, false));
            SFsLoad* const other = slots[random() % slots.size()].load.get();
            if (other == nullptr) continue;
            if (random() % 8 == 0) other->Cancel();
            if (random() % 3 == 0) other->Reprioritise(static_cast<std::int32_t>(random() % 1200) - 100, random() % 3);
        }
        for (Slot& slot : slots) {
            if (slot.load != nullptr) End(slot, false);
        }
    }

    LoadPtr BeginRandom(std::minstd_rand& random, Slot& slot) {
        static const std::pair<const char*, const std::string&> files[] = {
            {"small.bin", small_},           {"loose.bin", small_},          {"added.bin", small_},
            {"endless", *GatedSource::text}, {"shrunk", *GatedSource::text}, {"big.bin", big_}};
        const bool is_big = random() % 400 == 0;
        const auto& [name, bytes] = files[is_big ? 5 : random() % 5];
        const std::uint64_t offset = random() % 3 * 1000;
        slot.expected = std::string_view(bytes).substr(offset, is_big ? big_.size() : small_.size() - offset);
        SFsLoadWish wish{.path = name,
                         .offset = offset,
                         .size = slot.expected.size(),
                         .priority = static_cast<std::int32_t>(random() % 1200) - 100,
                         .deadline_ms = static_cast<std::uint32_t>(random() % 3),
                         .callback = &Told::Count,
                         .user = &told_};
        if (random() % 2 == 0 && !is_big) {
            wish.buffer = slot.buffer.data();
            wish.capacity = slot.buffer.size();
        }
        LoadPtr load = Begin(wish);
        if (load != nullptr) ++asked_;
        return load;
    }

    void End(Slot& slot, bool cancels) {
        if (cancels)
            slot.load->Cancel();
        else
            slot.load->Wait();
        EXPECT_EQ(slot.load->State(), EFSRequestState::FINISHED);
        if (slot.load->Result() == EFSRequestResult::SUCCESS) EXPECT_TRUE(Text(*slot.load) == slot.expected);
        slot.load.reset();
        slot.buffer.assign(slot.buffer.size(), '?');
    }

    /// Sources come and go, workers are hired and dismissed, callbacks move to the host and back.
    void Disturb() {
        const std::string pack = *files_ / "p.pak";
        const TempDirectory folder;
        folder.write("added.bin", small_);
        folder.write("sub/below.bin", small_);
        for (unsigned i = 0; !is_done_; ++i) {
            GatedSource* const own = MountGated();
            fs::add_source(pack.c_str(), whole_tree);
            fs::add_source(folder.path().c_str(), whole_tree);
            fs::set_polled_callbacks(i % 4 == 0);
            fs::set_load_settings(
                {.workers = 1 + i % 3, .no_urgent_lane = i % 2 == 0, .block_bytes = std::uint64_t{1} << (20 + i % 6)});
            for (unsigned poll = 0; poll < 20; ++poll) fs::poll_loads(10);
            std::this_thread::sleep_for(std::chrono::milliseconds(i % 8));
            fs::rem_source(own);
            delete own;
            fs::rem_source(folder.path().c_str());
            fs::rem_source(pack.c_str());
        }
    }

    std::atomic<int> asked_{0};
    std::atomic<bool> is_done_{false};
};

TEST_F(Soak, LoadsEndOnceEachWhateverHappensMeanwhile) {
    const std::uint64_t done_before = Statistics().done;
    std::thread disturber([this] { Disturb(); });
    run_together(hosts, [this](std::size_t i) { Ask(static_cast<unsigned>(i + 1), soak_loads() / hosts); });
    is_done_ = true;
    disturber.join();
    fs::shutdown();
    EXPECT_EQ(told_.count, asked_);
    const SFsLoadStatistics statistics = Statistics();
    EXPECT_TRUE(statistics.block_bytes == 0 && statistics.in_hand == 0);
    EXPECT_GT(statistics.done - done_before, static_cast<std::uint64_t>(asked_ / 5)) << "little was loaded at all";
    Start();
}

}  // namespace

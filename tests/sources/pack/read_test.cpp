// Reading entries: positions, seeks, damage. Most of it is held against block_model.h.
#include <cstring>
#include <thread>

#include "block_model.h"
#include "fixture.h"

namespace {

using packs::BlockModel;
using packs::Entry;
using packs::with;

/// Random reads and seeks of a kind that hits block ends, neighbours and far places.
void compare_by_chance(SFsFile& file, BlockModel& model, std::uint32_t size, std::uint32_t seed, int steps) {
    std::mt19937 random(seed);
    std::string expected(200000, '\0');
    std::string found(200000, '\0');
    for (int step = 0; step < steps; ++step) {
        if (random() % 3 == 0) {
            const auto around = static_cast<std::int64_t>(random() % (size + 40000));
            const std::int64_t offset =
                random() % 2 == 0 ? around / 32768 * 32768 - 3 + static_cast<int>(random() % 6) : around;
            const int origin = static_cast<int>(random() % 3);
            const std::int64_t target = origin == 0 ? offset : origin == 1 ? offset / 8 - size / 16 : -offset;
            EXPECT_TRUE(file.seek(target, static_cast<EFSSeek::TYPE>(origin)));
            model.seek(target, origin);
        }
        const std::uint64_t lengths[] = {0, 1, 100, 16384, 32768, 70000, 190000};
        const std::uint64_t length = lengths[random() % 7];
        std::fill(expected.begin(), expected.end(), '!');
        std::fill(found.begin(), found.end(), '!');
        const std::uint64_t wanted = model.read(expected.data(), length);
        ASSERT_EQ(file.read(found.data(), length), wanted) << "seed " << seed << " step " << step;
        ASSERT_EQ(std::memcmp(found.data(), expected.data(), wanted), 0) << "seed " << seed << " step " << step;
        ASSERT_EQ(file.tell(), model.position()) << "seed " << seed << " step " << step;
    }
}

std::vector<std::pair<const char*, Entry>> entries_good_and_bad() {
    const std::string data = packs::noise(300000, 1);
    const Entry deflated = packs::deflated_entry("x", data);
    const Entry stored = packs::stored_entry("x", data);
    return {{"deflated", deflated},
            {"stored", stored},
            {"deflated, empty", packs::deflated_entry("x", "")},
            {"stored, one block", packs::stored_entry("x", data.substr(0, 32768))},
            {"deflated, larger than recorded", with(deflated, [](Entry& e) { e.size = 200000; })},
            {"deflated, smaller than recorded", with(deflated, [](Entry& e) { e.size = 400000; })},
            {"stored, larger than recorded", with(stored, [](Entry& e) { e.size = 200000; })},
            {"stored, smaller than recorded", with(stored, [](Entry& e) { e.size = 400000; })},
            {"deflated, cut", with(deflated, [](Entry& e) { e.packed.resize(e.packed_size = 90000); })},
            {"deflated, damaged", with(deflated, [](Entry& e) { std::memset(&e.packed[80000], 0xFF, 2000); })},
            {"deflated, damaged at once", with(packs::deflated_entry("x", data.substr(0, 5000)),
                                               [](Entry& e) { std::memset(&e.packed[10], 0xFF, 200); })}};
}

TEST(PackRead, CannotBeToldFromTheBlockModel) {
    for (const auto& [label, entry] : entries_good_and_bad()) {
        SCOPED_TRACE(label);
        for (const bool in_memory : {false, true}) {
            const auto source = packs::mount(packs::build({entry}),
                                             in_memory ? FFSAddSourceFlags::PACK_IN_MEMORY : FFSAddSourceFlags::NONE);
            ASSERT_TRUE(source);
            for (std::uint32_t seed = 0; seed < 8; ++seed) {
                const auto file = packs::open(*source, "x");
                BlockModel model(entry.packed, entry.size, entry.method == 0);
                compare_by_chance(*file, model, entry.size, seed, 60);
                if (HasFatalFailure()) return;
            }
        }
    }
}

// Whole reads take another way than reading by blocks. Damage must not show which one was taken.
TEST(PackRead, WholeReadsOfEverySingleByteDamageAnswerLikeTheBlockModel) {
    const std::string data = packs::noise(600, 7) + std::string(300, 'z') + packs::noise(100, 8);
    const Entry good = packs::deflated_entry("x", data);
    for (std::size_t at = 0; at < good.packed.size(); ++at) {
        Entry bad = good;
        bad.packed[at] = static_cast<char>(bad.packed[at] ^ 0x55);
        const auto source = packs::mount(packs::build({bad}), FFSAddSourceFlags::PACK_IN_MEMORY);
        ASSERT_TRUE(source);
        const auto file = packs::open(*source, "x");
        BlockModel model(bad.packed, bad.size, false);
        for (const std::uint64_t length : {bad.size, 10u, 1000u}) {
            std::string expected(1000, '!');
            std::string found(1000, '!');
            const std::uint64_t wanted = model.read(expected.data(), length);
            ASSERT_EQ(file->read(found.data(), length), wanted) << "byte " << at;
            ASSERT_EQ(found.substr(0, wanted), expected.substr(0, wanted)) << "byte " << at;
        }
    }
}

TEST(PackRead, ThreadsReadTheSameEntriesWholeAndWithSeeks) {
    const std::string data = packs::noise(12 << 20, 3);
    const auto small = [&data](std::size_t i) { return data.substr(i * 1000, 3000 + 700 * i); };
    std::vector<Entry> entries{packs::deflated_entry("big", data)};
    for (std::size_t i = 0; i < 50; ++i) {
        const std::string name = "d/" + std::to_string(i);
        entries.push_back(i % 2 == 0 ? packs::deflated_entry(name, small(i)) : packs::stored_entry(name, small(i)));
    }
    const auto source = packs::mount(packs::build(entries));
    ASSERT_TRUE(source);
    const auto work = [&](std::uint32_t seed) {
        std::mt19937 random(seed);
        const auto file = packs::open(*source, "big");
        std::string found(4096, '\0');
        for (std::size_t step = 0; step < 50; ++step) {
            EXPECT_TRUE(packs::content(*source, "d/" + std::to_string(step)) == small(step)) << step;
            const std::uint64_t at = random() % (data.size() - found.size());
            file->seek(static_cast<std::int64_t>(at), EFSSeek::BEGIN);
            EXPECT_EQ(file->read(found.data(), found.size()), found.size());
            EXPECT_TRUE(found == data.substr(at, found.size())) << "at " << at;
        }
    };
    std::thread others[] = {std::thread(work, 1), std::thread(work, 2)};
    work(3);
    for (std::thread& other : others) other.join();
}

// An open file used to be of no use once its source was gone.
TEST(PackRead, OpenFilesOutliveTheSource) {
    const std::string data = packs::noise(100000, 4);
    for (const Entry& entry : {packs::deflated_entry("x", data), packs::stored_entry("x", data)}) {
        auto source = packs::mount(packs::build({entry}));
        ASSERT_TRUE(source);
        const auto file = packs::open(*source, "x");
        source.reset();
        std::string found(data.size(), '\0');
        EXPECT_EQ(file->read(found.data(), 50000), 50000u);
        EXPECT_EQ(file->read(found.data() + 50000, 50000), 50000u);
        EXPECT_EQ(found, data);
    }
}

}  // namespace

// Reading entries: positions, seeks, threads; damaged packs, failing disks and entries that lie, which must cost an
// error or short reads, and a reason: no crash, no hang, nothing outside the pack's bytes.
#include "engine/filesystem/log/sinks.h"
#include "fixture.h"
#include "tests/support/mounted_root.h"
#include "tests/support/run_together.h"

namespace {

using packs::deflated_entry;
using packs::Entry;
using packs::stored_entry;
using packs::with;
using testing::FieldsAre;
using testing::HasSubstr;

/// Random reads and seeks of a kind that hits block ends, neighbours and far places.
void compare_by_chance(SFsFile& file, const std::string& bytes, std::size_t seed) {
    std::mt19937 random(static_cast<std::uint32_t>(seed));
    const auto size = static_cast<std::int64_t>(bytes.size());
    const std::int64_t far_out[] = {-1, std::int64_t{1} << 32, std::int64_t{1} << 47,
                                    (std::int64_t{0xFFFFFFFF} << 15) + 5};
    const std::uint64_t lengths[] = {0, 1, 100, 16384, 32768, 70000, 190000, bytes.size()};
    std::string found(std::max<std::size_t>(bytes.size(), 190000), '\0');
    std::int64_t at = 0;
    for (int step = 0; step < 30; ++step) {
        SCOPED_TRACE(testing::Message() << "seed " << seed << " step " << step);
        if (random() % 3 == 0) {
            at = static_cast<std::int64_t>(random() % (bytes.size() + 40000));
            if (random() % 2 == 0)
                at = std::max<std::int64_t>(at / 32768 * 32768 - 3 + static_cast<int>(random() % 6), 0);
            if (random() % 8 == 0) at = far_out[random() % 4];
            EXPECT_TRUE(random() % 2 == 0 ? file.seek(at, EFSSeek::BEGIN)
                                          : file.seek(at - static_cast<std::int64_t>(file.tell()), EFSSeek::CURRENT));
        }
        const std::uint64_t length = lengths[random() % 8];
        const std::string wanted = at >= 0 && at < size ? bytes.substr(static_cast<std::size_t>(at), length) : "";
        ASSERT_EQ(file.read(found.data(), length), wanted.size());
        ASSERT_TRUE(found.starts_with(wanted));
        at += static_cast<std::int64_t>(wanted.size());
        ASSERT_EQ(file.tell(), static_cast<std::uint64_t>(at));
    }
}

// A long zstd entry has frames, a long deflated one checkpoints; a seek far out used to lead to other bytes.
TEST(PackRead, GivesTheBytesAtEachPositionToAnyNumberOfThreads) {
    const std::string data = noise(3 << 20, 1);
    std::vector<Entry> entries = packs::entries_of_all_methods(data);
    std::vector<std::string> contents(entries.size(), data);
    const auto add = [&](const Entry& entry, const std::string& content) {
        entries.push_back(entry);
        entries.back().name = std::to_string(entries.size());
        contents.push_back(content);
    };
    for (const Entry& entry : {deflated_entry("", data.substr(0, 300000)), stored_entry("", data.substr(0, 300000))}) {
        add(with(entry, [](Entry& e) { e.size = 200000; }), data.substr(0, 200000));
        add(with(entry, [](Entry& e) { e.size = 400000; }), data.substr(0, 300000));
    }
    add(deflated_entry("", ""), "");
    for (std::size_t i = 0; i < 40; ++i) {
        const std::string small = data.substr(i * 1000, 3000 + 900 * i);
        add(i % 2 == 0 ? deflated_entry("", small) : stored_entry("", small), small);
    }
    const std::string pack = packs::build(entries);
    EXPECT_TRUE(write_file("test.pak", pack));
    const std::pair<std::shared_ptr<packs::MemoryReader>, FFSAddSourceFlags::ENUM> places[] = {
        {nullptr, FFSAddSourceFlags::NONE},
        {nullptr, FFSAddSourceFlags::PACK_IN_MEMORY},
        {std::make_shared<packs::MemoryReader>(pack), FFSAddSourceFlags::NONE}};
    for (const auto& [reader, flags] : places) {
        CZip_dir source;
        if (reader) source.set_reader(reader);
        ASSERT_TRUE(source.init(as_path("test.pak"), flags, nullptr));
        run_together(3, [&](std::size_t seed) {
            for (std::size_t i = 0; i < entries.size(); ++i) {
                SCOPED_TRACE(entries[i].name);
                const fs::file_ptr file(source.open_read(as_path(entries[i].name), FFSOpenFlags::SEEKABLE));
                compare_by_chance(*file, contents[i], seed);
            }
        });
    }
}

// A read that did without what failed used to leave the failure in last_error, or to tell of it.
TEST(PackRead, SaysNothingOfWhatItReadAheadInVain) {
    const std::string data = noise(3 << 20, 1);
    for (const Entry& entry : packs::entries_of_all_methods(data)) {
        if (entry.method == EFSPackMethod::STORE) continue;
        SCOPED_TRACE(entry.name);
        const auto source = packs::mount(packs::build({entry}));
        const auto file = packs::open(*source, entry.name);
        // A long read fetches more than it needs at once; of zstd the table of frames comes first.
        std::string found(entry.method == EFSPackMethod::ZSTD ? 1000 : data.size() - 1, '\0');
        const std::uint32_t errors = logging::state.errors;
        fs::clear_error();
        platform::inject_fault(platform::FaultPoint::READ, 1, platform::Failure::OTHER, false);
        EXPECT_EQ(file->read(found.data(), found.size()), found.size());
        EXPECT_EQ(platform::fault_hits(), 1u);
        platform::clear_faults();
        EXPECT_EQ(fs::last_error().code, EFSError::NONE);
        EXPECT_TRUE(data.starts_with(found) && logging::state.errors == errors);
    }
}

// Programs rely on what they are given.
TEST(PackRead, BehindTheLastTwoBlocksAStoredEntryGoesOnWithTheInputThatComesNext) {
    const std::string data = noise(300000, 1);
    const auto source = packs::mount(packs::build({stored_entry("x", data)}));
    const auto file = packs::open(*source, "x");
    constexpr std::size_t next = 15 * 16384;  // input comes in pieces of 16 KiB
    const std::pair<std::int64_t, std::size_t> rows[] = {
        {0, 0},    {200000, 200000},  {170000, 170000},      {230000, 230000},
        {0, next}, {100, next + 100}, {40000, next + 40000}, {60000, data.size()},
        {0, next}};
    for (const auto& [position, from] : rows) {
        std::string found(100, '\0');
        file->seek(position, EFSSeek::BEGIN);
        found.resize(file->read(found.data(), 100));
        EXPECT_EQ(found, data.substr(from, 100)) << position;
    }
}

TEST(PackDamage, AnyByteMayBeWrongOrTheLast) {
    const auto exercise = [](const std::string& bytes, FFSAddSourceFlags::ENUM flags) {
        const auto source = packs::mount(bytes, flags);
        for (const std::string& name : source ? all_names(*source) : std::vector<std::string>()) {
            const auto file = packs::open(*source, name);
            char buffer[1000];
            for (const std::int64_t at : {0, 70000, 395, 10}) {
                if (!file) break;
                file->seek(at, EFSSeek::BEGIN);
                EXPECT_LE(file->read(buffer, sizeof buffer), sizeof buffer);
            }
        }
    };
    const std::string good = packs::build({deflated_entry("dir/a.txt", noise(200, 1) + std::string(200, 'z')),
                                           stored_entry("b", noise(60, 2)), deflated_entry("dir/c", "")});
    for (std::size_t at = 0; at < good.size(); ++at) {
        exercise(good.substr(0, at), FFSAddSourceFlags::PACK_IN_MEMORY);
        for (const char flip : {'\x01', '\x80', '\xFF'}) {
            std::string bad = good;
            bad[at] = static_cast<char>(bad[at] ^ flip);
            exercise(bad, at % 16 == 0 ? FFSAddSourceFlags::NONE : FFSAddSourceFlags::PACK_IN_MEMORY);
        }
    }
}

// A pack in use cannot be opened for writing here, but another process, or another system over the network, may.
TEST(PackDamage, APackThatShrinksWhileOpenGivesShortReadsOrZeros) {
    const std::string data = noise(200000, 5);
    const auto source = packs::mount(packs::build({stored_entry("s", data), deflated_entry("d", data)}));
    ASSERT_TRUE(source);
    const auto stored = packs::open(*source, "s");
    const auto packed = packs::open(*source, "d");
    std::FILE* file = std::fopen("test.pak", "r+b");
    if (!file) GTEST_SKIP() << "this system lets nobody else open the pack";
    std::fclose(std::freopen("test.pak", "wb", file));
    std::string found(data.size(), '!');
    EXPECT_EQ(stored->read(found.data(), found.size()), found.size());
    EXPECT_EQ(found, std::string(data.size(), '\0'));
    EXPECT_LE(packed->read(found.data(), found.size()), found.size());
    EXPECT_TRUE(packs::open(*source, "d")) << "its local header was read before";
}

// Damage used to be read without a word.
TEST(PackDamage, IsToldWithPackEntryAndReasonAndNothingElseIs) {
    const std::string data = noise(300000, 1);
    const Entry deflated = deflated_entry("deflated", data);
    std::vector<std::pair<Entry, const char*>> rows = {
        {with(deflated, [](Entry& e) { e.packed[10] = static_cast<char>(~e.packed[10]); }), "damaged"},
        {with(deflated, [](Entry& e) { e.packed.resize(e.packed_size = 90000); }), "fewer bytes"}};
    for (const Entry& good : packs::entries_of_all_methods(data)) {
        rows.push_back({good, nullptr});
        rows.push_back({with(good, [](Entry& e) { e.crc ^= 1; }), "checksum"});
        rows.push_back({with(good, [](Entry& e) { e.size += 1000; }), "fewer bytes"});
    }
    const auto expect_told = [](const std::string& name, const char* reason) {
        EXPECT_THAT(fs::last_error(),
                    FieldsAre(EFSError::BAD_FORMAT, 0, name, testing::AllOf(HasSubstr(reason), HasSubstr("test.pak"))));
        fs::clear_error();
    };
    for (const auto& [entry, reason] : rows) {
        const auto source = packs::mount(packs::build({entry}), FFSAddSourceFlags::EXACT_SEEKS);
        ASSERT_TRUE(source) << entry.name;
        for (const std::size_t step : {std::size_t{4096}, std::size_t{entry.size}}) {
            SCOPED_TRACE(testing::Message()
                         << entry.name << " by " << step << ": " << (reason != nullptr ? reason : "good"));
            const auto file = packs::open(*source, entry.name);
            std::string found;
            std::string piece(step, '\0');
            fs::clear_error();
            while (const std::uint64_t got = file->read(piece.data(), step)) found.append(piece, 0, got);
            EXPECT_TRUE(data.starts_with(found));
            if (!reason) {
                EXPECT_TRUE(found == data && fs::last_error().code == EFSError::NONE);
                continue;
            }
            expect_told(entry.name, reason);
            if (reason == std::string("checksum")) continue;
            file->seek(-500, EFSSeek::END);
            EXPECT_EQ(file->read(piece.data(), 1), 0u) << "what is missing, asked for alone";
            expect_told(entry.name, reason);
        }
    }
}

class PackChecksum : public MountedRoot {};

// It used to answer the sum of whatever came.
TEST_F(PackChecksum, IsNoneForADamagedEntry) {
    const Entry bad = with(deflated_entry("x", noise(300000, 1)), [](Entry& e) { ++e.crc; });
    ASSERT_TRUE(fs::add_source(directory_.write("test.pak", packs::build({bad, stored_entry("good", "1")})).c_str()));
    std::uint32_t crc = 1;
    EXPECT_FALSE(fs::calc_file_crc("x", crc));
    EXPECT_EQ(fs::last_error().code, EFSError::BAD_FORMAT);
    EXPECT_EQ(crc, 0u);
    EXPECT_FALSE(fs::copy("x", (directory_ / "y").c_str(), 0)) << "a copy of what came used to do";
    EXPECT_EQ(fs::last_error().code, EFSError::BAD_FORMAT);
    EXPECT_TRUE(fs::calc_file_crc("good", crc)) << "an earlier failure is none of this file's";
}

}  // namespace

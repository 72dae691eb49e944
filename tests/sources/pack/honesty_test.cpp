// What an open file of a pack says of itself when the pack, the disk or the caller's seeks are not as they should be.
#include <gmock/gmock.h>

#include <engine/filesystem/access/manage.h>
#include <engine/filesystem/contract/error.h>

#include "engine/filesystem/formats/deflate.h"
#include "engine/filesystem/formats/zstd.h"
#include "engine/platform/faults.h"
#include "fixture.h"
#include "tests/support/mounted_root.h"

namespace {

using packs::Entry;
using packs::with;
using testing::AllOf;
using testing::HasSubstr;

std::string read_in_steps(SFsFile& file, std::size_t step) {
    std::string out;
    std::string piece(step, '\0');
    while (const std::uint64_t got = file.read(piece.data(), step)) out.append(piece, 0, got);
    return out;
}

Entry zstd_entry(const std::string& name, const std::string& data) {
    const auto packed = fs::make_zstd_compressor()->compress(data.data(), data.size(), 3, data.size());
    return packs::packed_entry(name, data, EFSPackMethod::ZSTD, std::string(packed.begin(), packed.end()));
}

std::vector<Entry> good_entries(const std::string& data) {
    std::vector<Entry> entries = {packs::deflated_entry("x", data), packs::stored_entry("x", data)};
    if (fs::has_zstd()) entries.push_back(zstd_entry("x", data));
    return entries;
}

// Damage used to be read without a word.
TEST(PackHonesty, DamageIsToldWithPackEntryAndReasonAndNothingElse) {
    const std::string data = packs::noise(300000, 1);
    const Entry deflated = packs::deflated_entry("x", data);
    struct Row {
        const char* label;
        Entry entry;
        const char* reason;
    };
    std::vector<Row> rows = {
        {"damaged", with(deflated, [](Entry& e) { e.packed[10] = static_cast<char>(~e.packed[10]); }), "damaged"},
        {"cut", with(deflated, [](Entry& e) { e.packed.resize(e.packed_size = 90000); }), "fewer bytes"}};
    for (const Entry& good : good_entries(data)) {
        rows.push_back({"good", good, nullptr});
        rows.push_back({"wrong checksum", with(good, [](Entry& e) { e.crc ^= 1; }), "checksum"});
        rows.push_back({"longer by record", with(good, [](Entry& e) { e.size += 1000; }), "fewer bytes"});
    }
    for (const Row& row : rows) {
        const auto source = packs::mount(packs::build({row.entry}));
        ASSERT_TRUE(source) << row.label;
        for (const std::size_t step : {std::size_t{4096}, std::size_t{row.entry.size}}) {
            SCOPED_TRACE(row.label + (" by " + std::to_string(step)));
            fs::clear_error();
            const std::string found = read_in_steps(*packs::open(*source, "x"), step);
            if (!row.reason) {
                EXPECT_TRUE(found == data && fs::last_error().code == EFSError::NONE) << row.entry.method;
                continue;
            }
            EXPECT_EQ(fs::last_error().code, EFSError::BAD_FORMAT);
            EXPECT_THAT(fs::last_error().text, AllOf(HasSubstr(row.reason), HasSubstr("test.pak")));
            EXPECT_EQ(fs::last_error().path, "x");
        }
    }
}

class PackChecksum : public MountedRoot {};

// It used to answer the sum of whatever came.
TEST_F(PackChecksum, IsNoneForADamagedEntry) {
    const Entry bad = with(packs::deflated_entry("x", packs::noise(300000, 1)), [](Entry& e) { ++e.crc; });
    const std::string path = directory_.write("test.pak", packs::build({bad, packs::stored_entry("good", "1")}));
    EXPECT_TRUE(fs::add_source(path.c_str(), FFSAddSourceFlags::NONE));
    std::uint32_t crc = 1;
    EXPECT_FALSE(fs::calc_file_crc("x", crc));
    EXPECT_EQ(fs::last_error().code, EFSError::BAD_FORMAT);
    EXPECT_EQ(crc, 0u);
    EXPECT_TRUE(fs::calc_file_crc("good", crc)) << "an earlier failure is none of this file's";
}

// Zeros in place of what the disk did not give used to stay in the blocks, with no word of it.
TEST(PackHonesty, AFailedReadIsToldAndNotKept) {
    const std::string data = packs::noise(300000, 1);
    for (const Entry& entry : good_entries(data)) {
        const auto source = packs::mount(packs::build({entry}));
        ASSERT_TRUE(source);
        std::string found(1000, '\0');
        for (const std::int64_t at : {std::int64_t{0}, std::int64_t{70000}}) {
            const auto file = packs::open(*source, "x");
            file->seek(at, EFSSeek::BEGIN);
            fs::clear_error();
            platform::inject_fault(platform::FaultPoint::READ, 1, platform::Failure::OTHER, false);
            file->read(found.data(), found.size());
            platform::clear_faults();
            EXPECT_EQ(fs::last_error().code, EFSError::IO) << entry.method << " at " << at;
            file->seek(at, EFSSeek::BEGIN);
            EXPECT_EQ(file->read(found.data(), found.size()), found.size()) << entry.method << " at " << at;
            EXPECT_TRUE(found == data.substr(static_cast<std::size_t>(at), 1000)) << entry.method << " at " << at;
        }
    }
}

TEST(PackHonesty, Zip64EntriesAreRefusedAloneAndByName) {
    static constexpr std::uint32_t all = 0xFFFFFFFF;
    const auto source =
        packs::mount(packs::build({with(packs::stored_entry("size", "1"), [](Entry& e) { e.size = all; }),
                                   with(packs::stored_entry("packed", "1"), [](Entry& e) { e.packed_size = all; }),
                                   with(packs::stored_entry("offset", "1"), [](Entry& e) { e.header_offset = all; }),
                                   packs::stored_entry("good", "2")}));
    ASSERT_TRUE(source);
    for (const char* name : {"size", "packed", "offset"}) {
        EXPECT_FALSE(packs::open(*source, name));
        EXPECT_EQ(fs::last_error().code, EFSError::UNSUPPORTED);
        EXPECT_EQ(fs::last_error().path, name);
        EXPECT_THAT(fs::last_error().text, HasSubstr("zip64"));
    }
    EXPECT_EQ(packs::content(*source, "good"), "2");
}

// A long zstd entry has frames, a long deflated one checkpoints; a seek far out used to lead to other bytes.
TEST(PackHonesty, SeeksLeadWhereTheyAreAskedFor) {
    for (const std::string& data : {packs::noise(300000, 1), packs::noise(5 << 20, 1)}) {
        for (const Entry& entry : good_entries(data)) {
            const bool by_mount = data.size() == 300000;
            const auto source = packs::mount(packs::build({entry}),
                                             by_mount ? FFSAddSourceFlags::EXACT_SEEKS : FFSAddSourceFlags::NONE);
            ASSERT_TRUE(source);
            const std::unique_ptr<SFsFile> file(
                source->open_read(fs::path("x", true), by_mount ? FFSOpenFlags::NONE : FFSOpenFlags::SEEKABLE));
            std::mt19937 random(1);
            const std::int64_t far_out[] = {-1, std::int64_t{1} << 32, std::int64_t{1} << 47,
                                            (std::int64_t{0xFFFFFFFF} << 15) + 5};
            for (std::size_t i = 0; i < 40; ++i) {
                std::string found(70000, '\0');
                file->seek(far_out[i % 4], EFSSeek::BEGIN);
                ASSERT_EQ(file->read(found.data(), 100), 0u) << i;
                const std::size_t at = random() % data.size();
                file->seek(static_cast<std::int64_t>(at), EFSSeek::BEGIN);
                found.resize(static_cast<std::size_t>(file->read(found.data(), found.size())));
                ASSERT_TRUE(found == data.substr(at, 70000)) << entry.method << " at " << at;
            }
        }
    }
}

TEST(PackList, TellsWhatTheDirectoryRecordsAndLeavesTheListAloneOnFailure) {
    const Entry entry = packs::deflated_entry("Dir/A.txt", packs::noise(3000, 1));
    EXPECT_TRUE(write_file("test.pak", packs::build({packs::stored_entry("dir/", ""), entry})));
    ztl::vector<SFsPackEntry> entries;
    {
        const auto mounted = packs::mount_file("test.pak");
        ASSERT_TRUE(mounted && fs::list_pack("TEST.pak", entries)) << "a mounted pack had been in use";
    }
    ASSERT_TRUE(fs::list_pack("test.pak", entries));
    EXPECT_TRUE(write_file("test.pak", "no pack at all, but long enough"));
    EXPECT_FALSE(fs::list_pack("test.pak", entries) || fs::list_pack(nullptr, entries));
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].name, "Dir/A.txt");
    EXPECT_EQ(entries[0].size, entry.size);
    EXPECT_EQ(entries[0].packed_size, entry.packed_size);
    EXPECT_EQ(entries[0].method, EFSPackMethod::DEFLATE);
    EXPECT_EQ(entries[0].crc, entry.crc);
}

}  // namespace

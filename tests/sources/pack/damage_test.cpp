// Damaged packs, failing disks and entries that lie must cost a refusal or short reads, and a reason: no crash, no hang,
// nothing outside the pack's bytes.
#include <engine/filesystem/access/manage.h>
#include <engine/filesystem/contract/error.h>

#include "fixture.h"
#include "tests/support/mounted_root.h"

namespace {

using packs::deflated_entry;
using packs::Entry;
using packs::stored_entry;
using packs::with;
using testing::AllOf;
using testing::FieldsAre;
using testing::HasSubstr;

std::string small_pack() {
    return packs::build({deflated_entry("dir/a.txt", packs::noise(200, 1) + std::string(200, 'z')),
                         stored_entry("b", packs::noise(60, 2)), deflated_entry("dir/c", "")});
}

/// Mounts whatever it is and reads every entry it shows, with seeks. How many entries it showed, -1 when refused.
int exercise(const std::string& bytes, FFSAddSourceFlags::ENUM flags = FFSAddSourceFlags::PACK_IN_MEMORY) {
    const auto source = packs::mount(bytes, flags);
    if (!source) return -1;
    const auto names = all_names(*source);
    for (const std::string& name : names) {
        const auto file = packs::open(*source, name);
        if (!file) continue;
        char buffer[1000];
        for (const std::uint64_t at : {std::uint64_t{0}, std::uint64_t{70000}, file->length() - 5, std::uint64_t{10}}) {
            file->seek(static_cast<std::int64_t>(at), EFSSeek::BEGIN);
            EXPECT_LE(file->read(buffer, sizeof buffer), sizeof buffer);
        }
    }
    return static_cast<int>(names.size());
}

TEST(PackDamage, AnyByteMayBeWrongOrTheLast) {
    const std::string good = small_pack();
    ASSERT_EQ(exercise(good), 3);
    for (std::size_t at = 0; at < good.size(); ++at) {
        exercise(good.substr(0, at));
        for (const char flip : {'\x01', '\x80', '\xFF'}) {
            std::string bad = good;
            bad[at] = static_cast<char>(bad[at] ^ flip);
            exercise(bad, at % 16 == 0 ? FFSAddSourceFlags::NONE : FFSAddSourceFlags::PACK_IN_MEMORY);
        }
    }
    std::string counts_less = good;
    counts_less[good.size() - 14] = 2;
    EXPECT_EQ(exercise(counts_less), 2);
}

TEST(PackDamage, NamesMayBeAsLongAsTheFormatAllows) {
    const std::string long_name(65535, 'n');
    std::string deep;
    while (deep.size() < 65000) deep += "d/";
    const auto source = packs::mount(packs::build(
        {stored_entry(long_name, "1"), stored_entry(std::string(32767, 'd') + "/" + std::string(32767, 'n'), "2"),
         stored_entry(deep + "n", "3"),
         with(stored_entry("short", "4"), [](Entry& e) { e.central_extra = std::string(65535, 'x'); })}));
    ASSERT_TRUE(source);
    EXPECT_EQ(packs::content(*source, "short"), "4");
    EXPECT_EQ(packs::content(*source, long_name), "1");
    EXPECT_EQ(all_names(*source), std::vector<std::string>{"short"}) << "what 260-byte buffers of a host can hold";
}

// A pack in use cannot be opened for writing here, but another process, or another system over the network, may.
TEST(PackDamage, APackThatShrinksWhileOpenGivesShortReadsOrZeros) {
    const std::string data = packs::noise(200000, 5);
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
    const std::string data = packs::noise(300000, 1);
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
                    FieldsAre(EFSError::BAD_FORMAT, 0, name, AllOf(HasSubstr(reason), HasSubstr("test.pak"))));
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
    const Entry bad = with(deflated_entry("x", packs::noise(300000, 1)), [](Entry& e) { ++e.crc; });
    ASSERT_TRUE(fs::add_source(directory_.write("test.pak", packs::build({bad, stored_entry("good", "1")})).c_str()));
    std::uint32_t crc = 1;
    EXPECT_FALSE(fs::calc_file_crc("x", crc));
    EXPECT_EQ(fs::last_error().code, EFSError::BAD_FORMAT);
    EXPECT_EQ(crc, 0u);
    EXPECT_FALSE(fs::copy("x", (directory_ / "y").c_str(), 0)) << "a copy of what came used to do";
    EXPECT_EQ(fs::last_error().code, EFSError::BAD_FORMAT);
    EXPECT_TRUE(fs::calc_file_crc("good", crc)) << "an earlier failure is none of this file's";
}

TEST(PackDamage, Zip64EntriesAreRefusedAloneAndByName) {
    static constexpr std::uint32_t all = 0xFFFFFFFF;
    const auto source = packs::mount(packs::build(
        {with(stored_entry("size", "1"), [](Entry& e) { e.size = all; }),
         with(stored_entry("packed", "1"), [](Entry& e) { e.packed_size = all; }),
         with(stored_entry("offset", "1"), [](Entry& e) { e.header_offset = all; }), stored_entry("good", "2")}));
    ASSERT_TRUE(source);
    for (const char* name : {"size", "packed", "offset"}) {
        EXPECT_FALSE(packs::open(*source, name));
        EXPECT_THAT(fs::last_error(), FieldsAre(EFSError::UNSUPPORTED, 0, name, HasSubstr("zip64")));
    }
    EXPECT_EQ(packs::content(*source, "good"), "2");
}

}  // namespace

// Damaged packs must cost a refusal or short reads: no crash, no hang, nothing outside the pack's bytes.
#include <cstring>

#include "fixture.h"

namespace {

using packs::Entry;

std::string small_pack() {
    return packs::build({packs::deflated_entry("dir/a.txt", packs::noise(200, 1) + std::string(200, 'z')),
                         packs::stored_entry("b", packs::noise(60, 2)), packs::deflated_entry("dir/c", "")});
}

/// Mounts whatever it is and reads every entry it shows, with seeks. How many entries it showed, -1 when refused.
int exercise(const std::string& bytes, FFSAddSourceFlags::ENUM flags = FFSAddSourceFlags::PACK_IN_MEMORY) {
    const auto source = packs::mount(bytes, flags);
    if (!source) return -1;
    const auto names = packs::take_names(source->get_file_list(nullptr, nullptr, true));
    for (const std::string& name : names) {
        const std::unique_ptr<SFsFile> file(packs::open(*source, name));
        if (!file) continue;
        char buffer[1000];
        for (const std::uint64_t at : {std::uint64_t{0}, std::uint64_t{70000}, file->length() - 5, std::uint64_t{10}}) {
            file->seek(static_cast<std::int64_t>(at), EFSSeek::BEGIN);
            EXPECT_LE(file->read(buffer, sizeof buffer), sizeof buffer);
        }
    }
    return static_cast<int>(names.size());
}

TEST(PackDamage, TruncationAtEveryLengthIsRefusedOrHarmless) {
    const std::string good = small_pack();
    ASSERT_EQ(exercise(good), 3);
    for (std::size_t length = 0; length < good.size(); ++length) exercise(good.substr(0, length));
}

TEST(PackDamage, AnySingleByteMayBeWrong) {
    const std::string good = small_pack();
    for (std::size_t at = 0; at < good.size(); ++at) {
        for (const char flip : {'\x01', '\x80', '\xFF'}) {
            std::string bad = good;
            bad[at] = static_cast<char>(bad[at] ^ flip);
            exercise(bad, at % 16 == 0 ? FFSAddSourceFlags::NONE : FFSAddSourceFlags::PACK_IN_MEMORY);
        }
    }
}

TEST(PackDamage, SizesAndOffsetsMayLie) {
    const std::string data = packs::noise(5000, 3);
    for (const bool stored : {false, true}) {
        for (const std::uint32_t lie : {0u, 1u, 4999u, 70000u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
            Entry size = stored ? packs::stored_entry("x", data) : packs::deflated_entry("x", data);
            Entry packed = size;
            Entry offset = size;
            size.size = lie;
            packed.packed_size = lie;
            offset.header_offset = lie;
            offset.lies_about_offset = true;
            for (const Entry& entry : {size, packed, offset}) EXPECT_EQ(exercise(packs::build({entry})), 1) << lie;
        }
    }
}

TEST(PackDamage, EntriesMayLieOverEachOtherAndTheDirectory) {
    Entry first = packs::deflated_entry("a", packs::noise(3000, 4));
    Entry second = packs::stored_entry("b", "");
    second.lies_about_offset = true;
    second.header_offset = 20;
    second.size = second.packed_size = 4000;
    EXPECT_EQ(exercise(packs::build({first, second})), 2);
}

TEST(PackDamage, CountsOfEntriesMayLie) {
    std::string bytes = small_pack();
    bytes[bytes.size() - 14] = 2;
    EXPECT_EQ(exercise(bytes), 2);
    for (const char more : {'\x04', '\xFF'}) {
        bytes[bytes.size() - 14] = bytes[bytes.size() - 13] = more;
        EXPECT_EQ(exercise(bytes), -1);
    }
}

TEST(PackDamage, NamesMayBeAsLongAsTheFormatAllows) {
    const std::string long_dir = std::string(32767, 'd') + "/";
    std::string deep;
    while (deep.size() < 65000) deep += "d/";
    std::vector<Entry> entries = {packs::stored_entry(std::string(65535, 'n'), "1"),
                                  packs::stored_entry(long_dir + std::string(32767, 'n'), "2"),
                                  packs::stored_entry(deep + "n", "3"), packs::stored_entry("short", "4")};
    entries[3].central_extra = std::string(65535, 'x');
    const auto source = packs::mount(packs::build(entries));
    ASSERT_TRUE(source);
    EXPECT_EQ(packs::content(*source, "short"), "4");
    EXPECT_EQ(packs::content(*source, std::string(65535, 'n')), "1");
    // What 260-byte buffers of a host cannot hold is not put into lists.
    EXPECT_EQ(packs::take_names(source->get_file_list(nullptr, nullptr, true)), std::vector<std::string>{"short"});
}

// 1 GiB of zeros in 1 MiB: reading costs time, but no memory beside the blocks.
TEST(PackDamage, BombsAreReadThroughTheBlocks) {
    Entry bomb = packs::deflated_entry("bomb", std::string(64 << 20, '\0'));
    bomb.size = 0xFFFFFFFE;
    const auto source = packs::mount(packs::build({bomb}));
    ASSERT_TRUE(source);
    const std::unique_ptr<SFsFile> file(packs::open(*source, "bomb"));
    char buffer[100] = "x";
    file->seek(60 << 20, EFSSeek::BEGIN);
    EXPECT_EQ(file->read(buffer, sizeof buffer), sizeof buffer);
    EXPECT_EQ(buffer[0], '\0');
    file->seek(0x7FFFFFFF, EFSSeek::BEGIN);
    EXPECT_EQ(file->read(buffer, sizeof buffer), 0u);
}

// A pack in use cannot be opened for writing here, but another process, or another system over the network, may.
TEST(PackDamage, APackThatShrinksWhileOpenGivesShortReadsOrZeros) {
    const std::string data = packs::noise(200000, 5);
    const auto source = packs::mount(packs::build({packs::stored_entry("s", data), packs::deflated_entry("d", data)}));
    ASSERT_TRUE(source);
    const std::unique_ptr<SFsFile> stored(packs::open(*source, "s"));
    const std::unique_ptr<SFsFile> packed(packs::open(*source, "d"));
    std::FILE* file = std::fopen("test.pak", "r+b");
    if (!file) GTEST_SKIP() << "this system lets nobody else open the pack";
    std::fclose(std::freopen("test.pak", "wb", file));
    std::string found(data.size(), '!');
    EXPECT_EQ(stored->read(found.data(), found.size()), found.size());
    EXPECT_EQ(found, std::string(data.size(), '\0'));
    EXPECT_LE(packed->read(found.data(), found.size()), found.size());
    const std::unique_ptr<SFsFile> again(packs::open(*source, "d"));
    EXPECT_TRUE(again) << "its local header was read before";
}

}  // namespace

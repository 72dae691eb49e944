// Damaged packs must cost a refusal or short reads: no crash, no hang, nothing outside the pack's bytes.
#include "fixture.h"

namespace {

using packs::deflated_entry;
using packs::Entry;
using packs::stored_entry;
using packs::with;

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
}

TEST(PackDamage, SizesOffsetsAndCountsMayLie) {
    const std::string data = packs::noise(5000, 3);
    for (const Entry& good : {deflated_entry("x", data), stored_entry("x", data)}) {
        for (const std::uint32_t lie : {0u, 1u, 4999u, 70000u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
            for (const Entry& entry :
                 {with(good, [lie](Entry& e) { e.size = lie; }), with(good, [lie](Entry& e) { e.packed_size = lie; }),
                  with(good, [lie](Entry& e) { e.header_offset = lie; })})
                EXPECT_EQ(exercise(packs::build({entry})), 1) << lie;
        }
    }
    const Entry across = with(stored_entry("b", ""), [](Entry& e) {
        e.header_offset = 20;
        e.size = e.packed_size = 4000;
    });
    EXPECT_EQ(exercise(packs::build({deflated_entry("a", data), across})), 2) << "over another and the directory";
    std::string count = small_pack();
    count[count.size() - 14] = 2;
    EXPECT_EQ(exercise(count), 2);
    for (const char more : {'\x04', '\xFF'}) {
        count[count.size() - 14] = count[count.size() - 13] = more;
        EXPECT_EQ(exercise(count), -1);
    }
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

// Reading 64 MiB of zeros costs time, but no memory beside the blocks.
TEST(PackDamage, BombsAreReadThroughTheBlocks) {
    const Entry bomb = with(deflated_entry("bomb", std::string(64 << 20, '\0')), [](Entry& e) { e.size = 0xFFFFFFFE; });
    const auto source = packs::mount(packs::build({bomb}));
    ASSERT_TRUE(source);
    const auto file = packs::open(*source, "bomb");
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

}  // namespace

// Which files are packs, and what is seen of them.
#include <cstring>

#include <gmock/gmock.h>

#include "fixture.h"

namespace {

using packs::content;
using packs::deflated_entry;
using packs::stored_entry;
using testing::ElementsAre;
using testing::FieldsAre;
using testing::HasSubstr;

std::string full_name(CZip_dir& source, const char* text) {
    fs::path found;
    source.root_path(found, as_path(text));
    fs::path same;
    source.full_path(same, as_path(text));
    EXPECT_TRUE(found == same);
    return as_text(found);
}

TEST(PackMount, ShowsFilesByNameWithAnyEndOfTheirDirectory) {
    const auto source = packs::mount(packs::build(
        {stored_entry("B/c.txt", "1"), deflated_entry("A\\B\\c.txt", "2"), stored_entry("top.txt", "3"),
         stored_entry("dir/", ""), stored_entry("x/#hidden/f.txt", "4"), stored_entry("x/y/../z/./deep.txt", "5"),
         stored_entry("#open/f2.txt", "6"), stored_entry("\xC3\x89tat.txt", "7"), stored_entry("dup/g.txt", "first"),
         stored_entry("DUP/G.TXT", "second")}));
    ASSERT_TRUE(source);
    const std::pair<const char*, const char*> rows[] = {
        {"C.TXT", "a/b/c.txt"},
        {"z/b/c.txt", "b/c.txt"},
        {"q/c.txt", ""},
        {"q/top.txt", ""},
        {"dir", ""},
        {"f.txt", ""},
        {"deep.txt", "x/z/deep.txt"},
        {"f2.txt", "#open/f2.txt"},
        {"\xC3\x89tat.txt", "\xC3\x89tat.txt"},
        {"\xC3\xA9tat.txt", ""},
    };
    for (const auto& [asked, found] : rows) {
        EXPECT_EQ(full_name(*source, asked), found) << asked;
        EXPECT_EQ(source->exists(as_path(asked)), *found != '\0') << asked;
    }
    EXPECT_TRUE(source->exists(fs::path("A/B/C.Txt", false)));
    EXPECT_EQ(content(*source, "a/b/c.txt") + content(*source, "z/b/c.txt"), "21");
    EXPECT_EQ(content(*source, "g.txt"), "first");
    // By name, then by directory, and backwards.
    EXPECT_THAT(all_names(*source), ElementsAre("\xC3\x89tat.txt", "top.txt", "dup/g.txt", "dup/g.txt", "#open/f2.txt",
                                                "x/z/deep.txt", "b/c.txt", "a/b/c.txt"));
    EXPECT_THAT(test::take_names(source->search_substring("B")), ElementsAre("b/c.txt", "a/b/c.txt"));
    for (const char* nothing : {"", static_cast<const char*>(nullptr)})
        EXPECT_EQ(source->search_substring(nothing), nullptr);
    EXPECT_FALSE(source->dir_tree()->find("z"));
}

TEST(PackMount, ForgetsEverythingWhenCleared) {
    const auto source = packs::mount(packs::build({stored_entry("a/x", "1")}), FFSAddSourceFlags::INDEX_NAMES);
    ASSERT_TRUE(source);
    EXPECT_TRUE(source->type() == EFSSourceType::PACK && source->flags() == FFSAddSourceFlags::INDEX_NAMES);
    EXPECT_EQ(source->write_time(as_path("a/x")), 0);
    source->clear();
    EXPECT_FALSE(source->exists(as_path("a/x")));
    EXPECT_EQ(source->get_file_list(nullptr, nullptr, true), nullptr);
    const fs::dir* tree = source->dir_tree();
    EXPECT_EQ(tree->first_child(), nullptr);
    EXPECT_TRUE(source->init(as_path("test.pak"), FFSAddSourceFlags::NONE, nullptr));
    EXPECT_TRUE(tree->first_child()) << "a tree that somebody holds is filled without being asked for";
}

TEST(PackMount, TellsWhyItRefusesAFile) {
    const std::string good = packs::build({stored_entry("a", "1"), stored_entry("b", "2")});
    std::string commented = good;
    commented[commented.size() - 2] = 5;
    commented += "hello";
    std::string zip64 = good.substr(0, good.size() - 22);
    zip64 += "PK\x06\x07" + std::string(16, '\0') + good.substr(good.size() - 22);
    std::memset(&zip64[zip64.size() - 14], 0xFF, 12);
    std::string counts_more = good;
    std::memset(&counts_more[good.size() - 14], 0xFF, 4);
    std::string damaged = good;
    damaged[good.rfind("PK\x01\x02")] = 'Q';
    std::string many(65535 * 46, '\0');
    for (std::size_t at = 0; at < many.size(); at += 46) std::memcpy(&many[at], "PK\x01\x02", 4);
    many += "PK\x06\x07" + std::string(16, '\0') + "PK\x05\x06" + std::string(4, '\0') + "\xFF\xFF\xFF\xFF" +
            std::string(10, '\0');
    const std::pair<std::string, const char*> rows[] = {
        {commented, "has a comment"},
        {zip64, "zip64"},
        {many, "zip64"},
        {counts_more, "counts 65535 entries where its directory has 2"},
        {"in front" + good, "bytes in front"},
        {damaged, "damaged at entry 2 of 2"},
        {"no zip at all, but long enough", "does not end in"},
        {"", "of 0 bytes"},
        {good.substr(0, 21), "of 21 bytes"},
    };
    for (const auto& [bytes, reason] : rows) {
        fs::clear_error();
        EXPECT_FALSE(packs::mount(bytes)) << reason;
        EXPECT_THAT(fs::last_error().text, HasSubstr(reason));
        EXPECT_THAT(fs::last_error().path, HasSubstr("test.pak"));
    }
    EXPECT_TRUE(write_file("a.edat.pak", good));
    EXPECT_FALSE(packs::mount_file("a.edat.pak"));
    EXPECT_FALSE(packs::mount_file("missing.pak"));
    EXPECT_EQ(fs::last_error().code, EFSError::NOT_FOUND);
    EXPECT_FALSE(CZip_dir().init(fs::path(), FFSAddSourceFlags::NONE, nullptr));
    const auto empty = packs::mount(std::string(30, '\0'));
    ASSERT_TRUE(empty) << "the last 22 bytes are taken for the end record whatever they are";
    EXPECT_EQ(empty->get_file_list(nullptr, nullptr, true), nullptr);
}

TEST(PackMount, UsesTheLocalHeaderForPlaceAndMethodAlone) {
    packs::Entry entry = deflated_entry("a", "some text, some text");
    entry.local_extra = std::string(300, 'e');
    entry.central_extra = std::string(20, 'c');
    entry.comment = "not the pack's";
    std::string bytes = packs::build({entry, stored_entry("b", "2")});
    std::memset(bytes.data(), 0xAA, 8);        // signature, version, flags
    std::memset(bytes.data() + 10, 0xAA, 16);  // times, checksum, sizes
    const auto source = packs::mount(bytes);
    ASSERT_TRUE(source);
    EXPECT_EQ(content(*source, "a"), "some text, some text");
    EXPECT_EQ(content(*source, "b"), "2");
}

TEST(PackMount, TellsTheMonitorAndSharesThePackWithNobodyUnlessInMemory) {
    const std::string bytes = packs::build({stored_entry("a", "1")});
    const RecordingMonitor monitor;
    const auto source = packs::mount(bytes);
    ASSERT_TRUE(source);
    EXPECT_THAT(monitor.touched, ElementsAre("test.pak 0+0"));
    EXPECT_FALSE(packs::mount_file("test.pak"));
    EXPECT_EQ(fs::last_error().code, EFSError::IN_USE);
    EXPECT_TRUE(write_file("Memory.PAK", bytes));
    const auto one = packs::mount_file("Memory.PAK", FFSAddSourceFlags::PACK_IN_MEMORY);
    const auto other = packs::mount_file("Memory.PAK", FFSAddSourceFlags::PACK_IN_MEMORY);
    ASSERT_TRUE(one && other) << "opened by its native spelling";
    EXPECT_STREQ(one->path().FileName(), "memory.pak");
    EXPECT_EQ(content(*one, "a") + content(*other, "a"), "11");
}

TEST(PackList, TellsWhatTheDirectoryRecordsAndLeavesTheListAloneOnFailure) {
    const packs::Entry entry = deflated_entry("Dir/A.txt", packs::noise(3000, 1));
    EXPECT_TRUE(write_file("test.pak", packs::build({stored_entry("dir/", ""), entry})));
    ztl::vector<SFsPackEntry> entries;
    {
        const auto mounted = packs::mount_file("test.pak");
        ASSERT_TRUE(mounted && fs::list_pack("TEST.pak", entries)) << "a mounted pack had been in use";
    }
    ASSERT_TRUE(fs::list_pack("test.pak", entries));
    EXPECT_TRUE(write_file("test.pak", "no pack at all, but long enough"));
    EXPECT_FALSE(fs::list_pack("test.pak", entries) || fs::list_pack(nullptr, entries));
    EXPECT_THAT(entries, ElementsAre(FieldsAre("Dir/A.txt", entry.size, entry.packed_size,
                                               std::uint32_t{EFSPackMethod::DEFLATE}, entry.crc, testing::_)));
}

}  // namespace

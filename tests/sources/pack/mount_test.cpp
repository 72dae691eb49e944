// Which files are packs, what is seen of them, and packs that a host reads.
#include <cstring>
#include <limits>
#include <stdexcept>

#include "fixture.h"
#include "tests/support/mounted_root.h"

namespace {

using packs::content;
using packs::deflated_entry;
using packs::stored_entry;
using packs::with;
using testing::ElementsAre;
using testing::FieldsAre;
using testing::HasSubstr;

TEST(PackMount, ShowsFilesByNameWithAnyEndOfTheirDirectory) {
    const auto source = packs::mount(packs::build(
        {stored_entry("B/c.txt", "1"), deflated_entry("A\\B\\c.txt", "2"), stored_entry("top.txt", "3"),
         stored_entry("dir/", ""), stored_entry("x/#hidden/f.txt", "4"), stored_entry("x/y/../z/./deep.txt", "5"),
         stored_entry("#open/f2.txt", "6"), stored_entry("\xC3\x89tat.txt", "7"), stored_entry("dup/g.txt", "first"),
         stored_entry("DUP/G.TXT", "second"), stored_entry("dup.d/i.txt", "8")}));
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
    for (const auto& [asked, answer] : rows) {
        fs::path found;
        fs::path same;
        source->root_path(found, as_path(asked));
        source->full_path(same, as_path(asked));
        EXPECT_EQ(as_text(found), answer) << asked;
        EXPECT_EQ(as_text(same), answer) << asked;
        EXPECT_EQ(source->exists(as_path(asked)), *answer != '\0') << asked;
    }
    EXPECT_TRUE(source->exists(fs::path("A/B/C.Txt", false)));
    EXPECT_EQ(content(*source, "a/b/c.txt") + content(*source, "z/b/c.txt"), "21");
    EXPECT_EQ(content(*source, "g.txt"), "first");
    EXPECT_EQ(source->write_time(as_path("g.txt")), 0);
    // By name, then by directory, and backwards.
    EXPECT_THAT(all_names(*source), ElementsAre("\xC3\x89tat.txt", "top.txt", "dup.d/i.txt", "dup/g.txt", "dup/g.txt",
                                                "#open/f2.txt", "x/z/deep.txt", "b/c.txt", "a/b/c.txt"));
    EXPECT_THAT(test::take_names(source->search_substring("B")), ElementsAre("b/c.txt", "a/b/c.txt"));
    for (const char* nothing : {"", static_cast<const char*>(nullptr)})
        EXPECT_EQ(source->search_substring(nothing), nullptr);
    fs::dir* const tree = source->dir_tree();
    EXPECT_TRUE(tree->find("z") == nullptr && tree->find("x/z") != nullptr);
    EXPECT_EQ(tree->find("dup")->next_sibling(), tree->find("dup.d")) << "in the order of their names";
    source->clear();
    EXPECT_TRUE(source->dir_tree() == tree && tree->first_child() == nullptr);
    EXPECT_TRUE(!source->exists(as_path("c.txt")) && source->get_file_list(nullptr, nullptr, true) == nullptr);
    EXPECT_TRUE(source->init(as_path("test.pak"), FFSAddSourceFlags::NONE, nullptr));
    EXPECT_NE(tree->find("x/z"), nullptr) << "a tree that somebody holds is filled without being asked for";
}

TEST(PackMount, TellsWhyItFailsForAFile) {
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
    const std::pair<std::string, const char*> rows[] = {
        {commented, "has a comment"},
        {zip64, "zip64"},
        {counts_more, "counts 65535 entries where its directory has 2"},
        {"in front" + good, "bytes in front"},
        {damaged, "damaged at entry 2 of 2"},
        {"no zip at all, but long enough", "does not end in"},
        {good.substr(0, 21), "of 21 bytes"},
    };
    for (const auto& [bytes, reason] : rows) {
        fs::clear_error();
        EXPECT_FALSE(packs::mount(bytes)) << reason;
        EXPECT_THAT(fs::last_error().text, HasSubstr(reason));
        EXPECT_THAT(fs::last_error().path, HasSubstr("test.pak"));
    }
    EXPECT_TRUE(write_file("a.edat.pak", good));
    EXPECT_FALSE(packs::mount_file("a.edat.pak") || packs::mount_file("missing.pak"));
    EXPECT_EQ(fs::last_error().code, EFSError::NOT_FOUND);
    EXPECT_FALSE(CZip_dir().init(fs::path(), FFSAddSourceFlags::NONE, nullptr));
    std::string counts_less = good;
    counts_less[good.size() - 14] = 1;
    EXPECT_THAT(all_names(*packs::mount(counts_less)), ElementsAre("a"));
    const auto empty = packs::mount(std::string(30, '\0'));
    ASSERT_TRUE(empty) << "the last 22 bytes are taken for the end record whatever they are";
    EXPECT_EQ(empty->get_file_list(nullptr, nullptr, true), nullptr);
}

TEST(PackMount, ReadsTheSoundEntriesBesideOnesThatAreOdd) {
    static constexpr std::uint32_t all = 0xFFFFFFFF;
    const std::string long_name(65535, 'n');
    std::string deep;
    while (deep.size() < 65000) deep += "d/";
    packs::Entry first = deflated_entry("a", "some text, some text");
    first.local_extra = std::string(300, 'e');
    first.central_extra = std::string(20, 'c');
    first.comment = "not the pack's";
    std::string bytes = packs::build(
        {first, stored_entry(long_name, "1"), stored_entry(deep + "n", "3"),
         with(stored_entry("short", "4"), [](packs::Entry& e) { e.central_extra = std::string(65535, 'x'); }),
         with(stored_entry("size", "1"), [](packs::Entry& e) { e.size = all; }),
         with(stored_entry("packed", "1"), [](packs::Entry& e) { e.packed_size = all; }),
         with(stored_entry("offset", "1"), [](packs::Entry& e) { e.header_offset = all; })});
    // A local header tells the place and the method alone.
    std::memset(bytes.data(), 0xAA, 8);        // signature, version, flags
    std::memset(bytes.data() + 10, 0xAA, 16);  // times, checksum, sizes
    const auto source = packs::mount(bytes);
    ASSERT_TRUE(source);
    EXPECT_EQ(content(*source, "a"), "some text, some text");
    EXPECT_EQ(content(*source, "short") + content(*source, long_name), "41");
    EXPECT_THAT(all_names(*source), testing::UnorderedElementsAre("a", "short", "size", "packed", "offset"))
        << "what 260-byte buffers of a host can hold";
    for (const char* name : {"size", "packed", "offset"}) {
        EXPECT_FALSE(packs::open(*source, name));
        EXPECT_THAT(fs::last_error(), FieldsAre(EFSError::UNSUPPORTED, 0, name, HasSubstr("zip64")));
    }
}

TEST(PackMount, TellsTheMonitorAndSharesThePackWithNobodyUnlessInMemory) {
    const packs::Entry entry = deflated_entry("Dir/A.txt", noise(3000, 1));
    const std::string bytes = packs::build({stored_entry("dir/", ""), entry});
    ztl::vector<SFsPackEntry> entries;
    {
        const RecordingMonitor monitor;
        const auto source = packs::mount(bytes);
        ASSERT_TRUE(source && fs::list_pack("TEST.pak", entries)) << "a mounted pack is in use, and is listed";
        EXPECT_THAT(monitor.touched, ElementsAre("test.pak 0+0"));
        EXPECT_FALSE(packs::mount_file("test.pak"));
        EXPECT_EQ(fs::last_error().code, EFSError::IN_USE);
    }
    EXPECT_TRUE(write_file("test.pak", "no pack at all, but long enough"));
    EXPECT_FALSE(fs::list_pack("test.pak", entries) || fs::list_pack(nullptr, entries));
    EXPECT_THAT(entries, ElementsAre(FieldsAre("Dir/A.txt", entry.size, entry.packed_size,
                                               std::uint32_t{EFSPackMethod::DEFLATE}, entry.crc, testing::_)));
    EXPECT_TRUE(write_file("Memory.PAK", bytes));
    const auto one = packs::mount_file("Memory.PAK", FFSAddSourceFlags::PACK_IN_MEMORY);
    const auto other = packs::mount_file("Memory.PAK", FFSAddSourceFlags::PACK_IN_MEMORY);
    ASSERT_TRUE(one && other) << "opened by its native spelling";
    EXPECT_STREQ(one->path().FileName(), "memory.pak");
    EXPECT_EQ(content(*one, "a.txt"), content(*other, "a.txt"));
}

class PackReader : public MountedRoot {};

TEST_F(PackReader, IsReadLateNeverUnderTheLockAndReleasedWhenNothingReadsItAnyMore) {
    packs::MemoryReader reader(packs::build({stored_entry("a", "text"), deflated_entry("b", noise(9000, 1))}));
    reader.during_read = [] {
        EXPECT_FALSE(fs::rename("nothing", "something"));
        EXPECT_EQ(fs::last_error().code, EFSError::NOT_FOUND) << "INVALID_ARGUMENT: the lock is taken";
    };
    ASSERT_TRUE(fs::add_pack_reader("x:/odd//name", reader));
    const int mounted = reader.reads;
    fs::file_ptr a = fs::open_file("a", EFSMode::READ);
    fs::file_ptr b = fs::open_file("b", EFSMode::READ);
    EXPECT_TRUE(a && b && fs::length(a.get()) == 4 && fs::exists("a"));
    EXPECT_EQ(reader.reads, mounted) << "opening reads nothing";
    SFsView view;
    EXPECT_FALSE(fs::map("a", view, FFSMapFlags::NO_COPY));
    EXPECT_TRUE(fs::map("a", view));
    EXPECT_EQ(std::string(static_cast<const char*>(view.data), view.size), "text");
    fs::unmap(view);
    EXPECT_TRUE(fs::rem_source("x:/odd/name"));
    EXPECT_EQ(reader.released, 0) << "files are open";
    reader.during_read = nullptr;
    EXPECT_EQ(read_all(b.release()), noise(9000, 1));
    EXPECT_GT(reader.reads, mounted);
    a.reset();
    EXPECT_EQ(reader.released, 1);
    EXPECT_EQ(test::why(fs::add_pack_reader("", reader)), EFSError::INVALID_NAME);
    packs::MemoryReader other("no pack, but long enough for one");
    EXPECT_EQ(test::why(fs::add_pack_reader("other", other)), EFSError::BAD_FORMAT);
    EXPECT_TRUE(reader.released == 2 && other.released == 1) << "also by a call that fails";
}

TEST_F(PackReader, EveryFailureOfTheHostIsAnIoFailureThatPasses) {
    const std::string data = noise(300000, 1);
    const std::vector<packs::Entry> entries = packs::entries_of_all_methods(data);
    packs::MemoryReader reader(packs::build(entries));
    const std::pair<packs::MemoryReader::Fault, const char*> rows[] = {
        {[](std::uint64_t size) { return static_cast<std::int64_t>(size) - 1; }, "its reader answered"},
        {[](std::uint64_t size) { return static_cast<std::int64_t>(size) + 1; }, "its reader answered"},
        {[](std::uint64_t) { return std::numeric_limits<std::int64_t>::min(); }, "its reader failed"},
        {[](std::uint64_t) -> std::int64_t { throw std::runtime_error("x"); }, "exception"},
    };
    const auto expect_told = [&reader](const char* reason) {
        EXPECT_EQ(fs::last_error().code, EFSError::IO);
        EXPECT_THAT(fs::last_error().text, HasSubstr(reason));
        fs::clear_error();
        reader.fault = nullptr;
    };
    for (const auto& [fault, reason] : rows) {
        SCOPED_TRACE(reason);
        reader.fault = fault;
        EXPECT_FALSE(fs::add_pack_reader("m.pak", reader));
        expect_told(reason);
        ASSERT_TRUE(fs::add_pack_reader("m.pak", reader));
        for (const packs::Entry& entry : entries) {
            SCOPED_TRACE(entry.name);
            std::string found(data.size(), '\0');
            const fs::file_ptr file = fs::open_file(entry.name.c_str(), EFSMode::READ, FFSOpenFlags::SEEKABLE);
            for (const bool is_located : {false, true}) {
                reader.fault = fault;
                EXPECT_EQ(fs::read(file.get(), found.data(), 1000), is_located && entry.name == "stored" ? 1000u : 0u);
                expect_told(reason);
                fs::seek(file.get(), 0, EFSSeek::BEGIN);
                ASSERT_EQ(fs::read(file.get(), found.data(), found.size()), data.size());
                EXPECT_TRUE(found == data);
                fs::seek(file.get(), 0, EFSSeek::BEGIN);
            }
        }
        EXPECT_TRUE(fs::rem_source("m.pak"));
    }
    reader.length_known = false;
    reader.reason = "the moon is in the way";
    EXPECT_FALSE(fs::add_pack_reader("m.pak", reader));
    EXPECT_EQ(fs::last_error().text, "The pack \"m.pak\" cannot be read: the moon is in the way.");
}

}  // namespace

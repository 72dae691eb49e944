#include <memory>
#include <thread>

#include <gmock/gmock.h>
#include <zlib.h>

#include <engine/filesystem/access/whole_file.h>
#include <engine/filesystem/sources/memory_archive.h>
#include <engine/filesystem/startup.h>

#include "tests/support/temp_directory.h"

namespace {

using fs::CMemZip_dir;
using fs::ZippedDataArchive;
using testing::ElementsAre;

std::string zipped(const std::string& data) {
    uLongf size = compressBound(static_cast<uLong>(data.size()));
    std::string out(size, '\0');
    compress(reinterpret_cast<Bytef*>(out.data()), &size, reinterpret_cast<const Bytef*>(data.data()),
             static_cast<uLong>(data.size()));
    out.resize(size);
    return out;
}

class MemoryArchive : public testing::Test {
protected:
    bool add(const char* name, const std::string& data) {
        const std::string packed = zipped(data);
        return archive_.AddEntry(name, packed.data(), packed.size(), data.size());
    }
    std::string read(const char* name) {
        char buffer[1000];
        std::uint32_t length = 77;
        if (archive_.ReadEntryAsZippedData(name, buffer, sizeof buffer, &length)) return std::string(buffer, length);
        EXPECT_EQ(length, 0u);
        return "(none)";
    }
    std::string open(const char* path) {
        CMemZip_dir source(&archive_);
        const std::unique_ptr<SFsFile> file(source.open_read(fs::path(path, true), FFSOpenFlags::NONE));
        if (!file) return "(none)";
        std::string out(static_cast<std::size_t>(file->length()), '!');
        out.resize(static_cast<std::size_t>(file->read(out.data(), out.size())));
        return out;
    }
    std::list<std::string> names() {
        std::list<std::string> out{"old"};
        archive_.GetAllFilenames(out);
        return out;
    }

    unsigned char memory_[400] = {};
    ZippedDataArchive archive_;
};

TEST_F(MemoryArchive, BindsMemoryOnce) {
    EXPECT_FALSE(archive_.IsMemoryBound());
    EXPECT_FALSE(add("a", "1"));
    EXPECT_FALSE(archive_.BindArchiveToMemory(nullptr, 10));
    EXPECT_TRUE(archive_.BindArchiveToMemory(memory_, 0));
    EXPECT_FALSE(archive_.IsMemoryBound()) << "no capacity";
    EXPECT_TRUE(archive_.BindArchiveToMemory(memory_, sizeof memory_));
    EXPECT_FALSE(archive_.BindArchiveToMemory(memory_, 10));
    EXPECT_TRUE(archive_.UnbindArchiveFromMemory());
    EXPECT_FALSE(archive_.UnbindArchiveFromMemory());
}

TEST_F(MemoryArchive, NamesThatDifferInCaseAreOneEntry) {
    archive_.BindArchiveToMemory(memory_, sizeof memory_);
    EXPECT_TRUE(add("Data/A.txt", "first"));
    EXPECT_FALSE(add("data/a.TXT", "second"));
    EXPECT_TRUE(archive_.EntryExists("DATA/a.txt"));
    EXPECT_EQ(read("data/A.txt"), "first");
    EXPECT_EQ(archive_.GetEntryUnzippedLength("data/a.txt"), 5u);
    EXPECT_EQ(archive_.GetEntryUnzippedLength("b"), 0u);
    EXPECT_EQ(read("b"), "(none)");
    EXPECT_THAT(names(), ElementsAre("data/a.txt"));
}

TEST_F(MemoryArchive, IsNeverFilledToItsLastByte) {
    archive_.BindArchiveToMemory(memory_, 10);
    EXPECT_FALSE(archive_.AddEntry("a", "0123456789", 10, 1));
    EXPECT_FALSE(archive_.AddEntry("a", "", ~std::uint64_t{0}, 1));
    EXPECT_FALSE(archive_.AddEntry("a", nullptr, 1, 1));
    EXPECT_TRUE(archive_.AddEntry("a", "01234", 5, 1));
    EXPECT_FALSE(archive_.AddEntry("b", "01234", 5, 1));
    EXPECT_TRUE(archive_.AddEntry("b", "0123", 4, 1));
    const void* data = nullptr;
    std::uint64_t size = 0;
    ASSERT_TRUE(archive_.GetEntry("B", &data, &size));
    EXPECT_EQ(data, memory_ + 5);
    EXPECT_EQ(size, 4u);
}

TEST_F(MemoryArchive, ClosesTheGapOfARemovedEntry) {
    archive_.BindArchiveToMemory(memory_, sizeof memory_);
    for (const char* name : {"a", "b", "c"}) ASSERT_TRUE(add(name, std::string("content of ") + name));
    EXPECT_TRUE(archive_.RemoveEntry("A"));
    EXPECT_FALSE(archive_.RemoveEntry("a"));
    EXPECT_EQ(read("b"), "content of b");
    EXPECT_EQ(read("c"), "content of c");
    EXPECT_TRUE(add("d", "content of d"));
    const void* data = nullptr;
    ASSERT_TRUE(archive_.GetEntry("b", &data, nullptr));
    EXPECT_EQ(data, memory_);
    EXPECT_THAT(names(), ElementsAre("b", "c", "d"));
}

TEST_F(MemoryArchive, KeepsCountingUsedMemoryAfterAReset) {
    archive_.BindArchiveToMemory(memory_, 20);
    ASSERT_TRUE(archive_.AddEntry("a", "0123456789", 10, 1));
    archive_.ResetEntryMap();
    EXPECT_FALSE(archive_.EntryExists("a"));
    ASSERT_TRUE(archive_.AddEntry("b", "01", 2, 1));
    const void* data = nullptr;
    ASSERT_TRUE(archive_.GetEntry("b", &data, nullptr));
    EXPECT_EQ(data, memory_ + 10);
    archive_.UnbindArchiveFromMemory();
    archive_.BindArchiveToMemory(memory_, 12);
    EXPECT_FALSE(archive_.AddEntry("c", "", 0, 0)) << "used 12 of 12";
}

TEST_F(MemoryArchive, IgnoredNamesAreReportedMissing) {
    archive_.BindArchiveToMemory(memory_, sizeof memory_);
    ASSERT_TRUE(add("a", "one"));
    archive_.AddIgnoredFile("A");
    archive_.AddIgnoredFile("a");
    EXPECT_TRUE(archive_.IsIgnoredFile("a"));
    EXPECT_FALSE(archive_.EntryExists("a"));
    EXPECT_FALSE(archive_.GetEntry("a", nullptr, nullptr));
    EXPECT_EQ(open("a"), "(none)");
    EXPECT_TRUE(add("a", "two")) << "an ignored entry is no duplicate";
    archive_.RemoveIgnoredFile("a");
    EXPECT_FALSE(archive_.IsIgnoredFile("a"));
    EXPECT_EQ(read("a"), "two");
    EXPECT_THAT(names(), ElementsAre("a"));
}

TEST_F(MemoryArchive, SourceFindsByFileNameAloneAndOpensCopies) {
    archive_.BindArchiveToMemory(memory_, sizeof memory_);
    ASSERT_TRUE(add("a.txt", "hello"));
    CMemZip_dir source(&archive_);
    const fs::path a("any/where/A.txt", true);
    fs::path full;
    source.full_path(full, a);
    EXPECT_TRUE(full == a);
    source.root_path(full, a);
    EXPECT_TRUE(full.Empty());
    const std::unique_ptr<SFsFile> file(source.open_read(a, FFSOpenFlags::NONE));
    ASSERT_TRUE(file);
    archive_.ResetEntryMap();
    EXPECT_FALSE(source.exists(a) || CMemZip_dir().exists(a)) << "without an entry, and without an archive";
    char buffer[10] = {};
    EXPECT_EQ(file->read(buffer, 10), 5u);
    EXPECT_STREQ(buffer, "hello");
    EXPECT_EQ(source.type(), EFSSourceType::PLS);
}

TEST_F(MemoryArchive, DamageAndWrongLengthsFailTheOpen) {
    archive_.BindArchiveToMemory(memory_, sizeof memory_);
    const std::string packed = zipped("hello, hello, hello");
    ASSERT_TRUE(archive_.AddEntry("good", packed.data(), packed.size(), 19));
    ASSERT_TRUE(archive_.AddEntry("short", packed.data(), packed.size(), 18));
    ASSERT_TRUE(archive_.AddEntry("cut", packed.data(), packed.size() - 1, 19));
    ASSERT_TRUE(archive_.AddEntry("huge", packed.data(), packed.size(), ~std::uint64_t{0} / 2));
    std::string damaged = packed;
    damaged.back() = static_cast<char>(damaged.back() ^ 1);
    ASSERT_TRUE(archive_.AddEntry("damaged", damaged.data(), damaged.size(), 19));
    EXPECT_EQ(open("good"), "hello, hello, hello");
    for (const char* name : {"short", "cut", "huge", "damaged"}) EXPECT_EQ(open(name), "(none)") << name;
}

TEST_F(MemoryArchive, IsFilledWhileAnotherThreadReads) {
    std::vector<unsigned char> memory(1 << 20);
    archive_.BindArchiveToMemory(memory.data(), memory.size());
    std::thread filler([this] {
        for (int i = 0; i < 300; ++i) EXPECT_TRUE(add(std::to_string(i).c_str(), "content"));
        for (int i = 0; i < 300; i += 2) EXPECT_TRUE(archive_.RemoveEntry(std::to_string(i).c_str()));
    });
    for (int i = 0; i < 600; ++i) {
        const std::string found = open(std::to_string(i % 300).c_str());
        EXPECT_TRUE(found == "content" || found == "(none)") << found;
    }
    filler.join();
}

TEST(ServerArchive, IsMadeOnceMountedFirstAndGoneAfterShutdown) {
    const TempDirectory root;
    root.write("a.txt", "from the disk");
    ASSERT_TRUE(fs::init(root.path().c_str(), FFSAddSourceFlags::NONE, "", false, false, nullptr));
    ASSERT_EQ(fs::get_server_archive(), nullptr);
    unsigned char memory[100];
    unsigned char other[100];
    ZippedDataArchive* archive = fs::create_server_archive(memory, sizeof memory);
    ASSERT_TRUE(archive);
    EXPECT_EQ(fs::create_server_archive(other, sizeof other), archive);
    EXPECT_EQ(fs::get_server_archive(), archive);
    const std::string packed = zipped("from the server");
    ASSERT_TRUE(archive->AddEntry("A.txt", packed.data(), packed.size(), 15));
    const void* data = nullptr;
    EXPECT_TRUE(archive->GetEntry("a.txt", &data, nullptr));
    EXPECT_EQ(data, memory);
    fs::string text;
    EXPECT_TRUE(fs::load_text_file(text, "a.txt"));
    EXPECT_EQ(text, "from the server");
    fs::shutdown();
    EXPECT_EQ(fs::get_server_archive(), nullptr);
}

}  // namespace

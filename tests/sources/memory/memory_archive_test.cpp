#include "tests/sources/kit.h"
#include "tests/support/run_together.h"

namespace {

using fs::CMemZip_dir;
using testing::ElementsAre;

class MemoryArchive : public testing::Test {
protected:
    void bind(std::uint64_t capacity) { EXPECT_TRUE(archive_.BindArchiveToMemory(memory_, capacity)); }
    /// Bytes that are, or are not, a stream of so many.
    bool add_raw(const char* name, const std::string& bytes, std::uint64_t length = 1) {
        return archive_.AddEntry(name, bytes.data(), bytes.size(), length);
    }
    bool add(const char* name, const std::string& data) { return add_raw(name, zipped(data), data.size()); }
    std::string read(const char* name) {
        char buffer[1000];
        std::uint32_t length = 77;
        if (archive_.ReadEntryAsZippedData(name, buffer, sizeof buffer, &length)) return std::string(buffer, length);
        EXPECT_EQ(length, 0u);
        return "(none)";
    }
    std::string open(const std::string& name) {
        return read_all(CMemZip_dir(&archive_).open_read(as_path(name), FFSOpenFlags::NONE));
    }
    std::list<std::string> names() {
        std::list<std::string> out{"old"};
        archive_.GetAllFilenames(out);
        return out;
    }
    /// Where in the memory the entry lies, and how long it is.
    std::string_view place(const char* name) {
        const void* data = nullptr;
        std::uint64_t size = 0;
        EXPECT_TRUE(archive_.GetEntry(name, &data, &size)) << name;
        return {static_cast<const char*>(data), static_cast<std::size_t>(size)};
    }

    char memory_[400] = {};
    fs::ZippedDataArchive archive_;
};

TEST_F(MemoryArchive, BindsMemoryOnceNeverFillsItsLastByteAndKeepsCountingAfterAReset) {
    EXPECT_FALSE(archive_.IsMemoryBound() || add("a", "1") || archive_.BindArchiveToMemory(nullptr, 10));
    bind(0);
    EXPECT_FALSE(archive_.IsMemoryBound() || archive_.UnbindArchiveFromMemory()) << "no capacity";
    bind(10);
    EXPECT_FALSE(archive_.BindArchiveToMemory(memory_, sizeof memory_) || add_raw("a", "0123456789"));
    EXPECT_FALSE(archive_.AddEntry("a", "", ~std::uint64_t{0}, 1) || archive_.AddEntry("a", nullptr, 1, 1));
    EXPECT_TRUE(add_raw("a", "01234"));
    EXPECT_EQ(test::why(add_raw("b", "01234")), EFSError::TOO_LARGE);
    EXPECT_TRUE(add_raw("b", "0123"));
    EXPECT_EQ(place("B"), "0123");
    EXPECT_EQ(place("B").data(), memory_ + 5);
    archive_.ResetEntryMap();
    EXPECT_FALSE(archive_.EntryExists("a") || add_raw("c", "0"));
    EXPECT_TRUE(archive_.UnbindArchiveFromMemory() && !archive_.UnbindArchiveFromMemory());
    bind(9);
    EXPECT_FALSE(add_raw("c", "")) << "used 9 of 9";
    archive_.UnbindArchiveFromMemory();
    bind(20);
    EXPECT_TRUE(add_raw("c", "01"));
    EXPECT_EQ(place("c").data(), memory_ + 9);
}

TEST_F(MemoryArchive, NamesThatDifferInCaseAreOneTheGapOfARemovedOneIsClosedAndIgnoredOnesAreMissing) {
    bind(sizeof memory_);
    for (const char* name : {"Data/A.txt", "b", "c"}) ASSERT_TRUE(add(name, std::string("content of ") + name));
    EXPECT_EQ(test::why(add("data/a.TXT", "second")), EFSError::ALREADY_EXISTS);
    EXPECT_EQ(read("DATA/a.txt"), "content of Data/A.txt");
    EXPECT_EQ(archive_.GetEntryUnzippedLength("data/a.txt"), 21u);
    EXPECT_THAT(names(), ElementsAre("data/a.txt", "b", "c"));
    EXPECT_TRUE(archive_.RemoveEntry("data/A.TXT") && !archive_.RemoveEntry("data/a.txt"));
    EXPECT_TRUE(read("data/a.txt") == "(none)" && archive_.GetEntryUnzippedLength("data/a.txt") == 0);
    EXPECT_EQ(place("b").data(), memory_);
    EXPECT_TRUE(add("d", "content of d"));
    for (const char* name : {"b", "c", "d"}) EXPECT_EQ(read(name), std::string("content of ") + name);
    for (const char* name : {"B", "b"}) archive_.AddIgnoredFile(name);
    EXPECT_TRUE(archive_.IsIgnoredFile("b") && !archive_.EntryExists("b"));
    EXPECT_EQ(open("b"), "(null)");
    EXPECT_TRUE(add("b", "two")) << "an ignored entry is no duplicate";
    archive_.RemoveIgnoredFile("b");
    EXPECT_TRUE(!archive_.IsIgnoredFile("b") && read("b") == "two");
    EXPECT_THAT(names(), ElementsAre("b", "c", "d"));
}

TEST_F(MemoryArchive, SourceOpensCopiesAndKnowsNoPaths) {
    bind(sizeof memory_);
    ASSERT_TRUE(add("a.txt", "hello"));
    CMemZip_dir source(&archive_);
    const fs::path a = as_path("any/where/A.txt");
    fs::path out;
    source.full_path(out, a);
    EXPECT_EQ(out, a);
    source.root_path(out, a);
    EXPECT_TRUE(out.Empty() && source.type() == EFSSourceType::PLS);
    SFsFile* const file = source.open_read(a, FFSOpenFlags::NONE);
    archive_.ResetEntryMap();
    EXPECT_FALSE(source.exists(a) || CMemZip_dir().exists(a)) << "without an entry, and without an archive";
    EXPECT_EQ(read_all(file), "hello");
}

TEST_F(MemoryArchive, DamageAndWrongLengthsFailTheOpen) {
    bind(sizeof memory_);
    const std::string packed = zipped("hello, hello, hello");
    std::string damaged = packed;
    damaged.back() = static_cast<char>(damaged.back() ^ 1);
    EXPECT_TRUE(add_raw("good", packed, 19) && add_raw("short", packed, 18) && add_raw("damaged", damaged, 19) &&
                add_raw("cut", packed.substr(0, packed.size() - 1), 19) &&
                add_raw("huge", packed, ~std::uint64_t{0} / 2));
    EXPECT_EQ(open("good"), "hello, hello, hello");
    for (const char* bad : {"short", "damaged", "cut", "huge"}) EXPECT_EQ(open(bad), "(null)") << bad;
}

TEST_F(MemoryArchive, IsFilledWhileAnotherThreadReads) {
    std::vector<char> memory(1 << 20);
    archive_.BindArchiveToMemory(memory.data(), memory.size());
    run_together(2, [&](std::size_t thread) {
        for (int i = 0; i < 600; ++i) {
            const std::string name = std::to_string(i % 300);
            if (thread == 0) EXPECT_THAT(open(name), testing::AnyOf("content", "(null)"));
            if (thread == 1) EXPECT_TRUE(i < 300 ? add(name.c_str(), "content") : archive_.RemoveEntry(name.c_str()));
        }
        EXPECT_NE(fs::last_error().code, EFSError::BAD_FORMAT) << "an entry that goes is not damaged";
    });
}

struct MakesAnotherWhenItGoes : test::MemorySource {
    MakesAnotherWhenItGoes() : MemorySource("/memory") {}
    ~MakesAnotherWhenItGoes() override { fs::create_server_archive(nullptr, 0); }
};

TEST(ServerArchive, IsMadeOnceMountedFirstAndGoneAfterShutdown) {
    const TempDirectory root;
    root.write("a.txt", "from the disk");
    const auto init = [&] { return fs::init(root.path().c_str(), FFSAddSourceFlags::NONE, "", false, false, nullptr); };
    ASSERT_TRUE(init());
    ASSERT_EQ(fs::get_server_archive(), nullptr);
    char memory[100];
    fs::ZippedDataArchive* const archive = fs::create_server_archive(memory, sizeof memory);
    const std::string packed = zipped("from the server");
    ASSERT_TRUE(archive && archive->AddEntry("A.txt", packed.data(), packed.size(), 15));
    EXPECT_EQ(fs::create_server_archive(memory, sizeof memory), archive);
    EXPECT_EQ(fs::get_server_archive(), archive);
    std::string text;
    EXPECT_TRUE(fs::read_file(text, "a.txt") && text == "from the server");
    fs::shutdown();
    EXPECT_EQ(fs::get_server_archive(), nullptr);
    ASSERT_TRUE(init());
    fs::add_source(new MakesAnotherWhenItGoes, FFSAddSourceFlags::NONE);
    fs::shutdown();
    EXPECT_FALSE(fs::get_server_archive() || fs::exists("a.txt")) << "its source is still asked";
    test::unmount_all();
}

}  // namespace

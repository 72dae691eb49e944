#include "tests/sources/kit.h"

namespace {

using testing::UnorderedElementsAre;

class DirectorySourceLinks : public testing::Test {
protected:
    bool mount() { return source.init(as_dir(disk.path()), FFSAddSourceFlags::RECURSIVE, nullptr); }
    void link(const std::string& from, const std::string& to) const {
        std::filesystem::create_directory_symlink(disk / to, disk / from);
    }

    TempDirectory disk;
    CWin32_dir source{EFSSourceType::DIR};
};

TEST_F(DirectorySourceLinks, ThatLeadToEachOtherEndAndThoseToOnePlaceAllCount) {
    for (const char from : std::string("12345678")) {
        disk.write(std::string("d") + from + "/f", "1");
        for (const char to : std::string("12345678")) link(std::string("d") + from + "/l" + to, std::string("d") + to);
    }
    link("d1/up", ".");
    std::filesystem::create_symlink(disk / "d1/f", disk / "file");
    std::filesystem::create_symlink(disk / "nowhere", disk / "broken");
    ASSERT_TRUE(mount());
    // Eight directories, seven links in each, a chain that reached six of them for the first time, and the file.
    EXPECT_EQ(all_names(source).size(), 8u + 8 * 7 + 6 + 1);
    for (const char* name : {"d1/l8/f", "d8/l1/f", "d5/l4/f", "file"}) EXPECT_TRUE(source.exists_whole(as_path(name)));
}

TEST_F(DirectorySourceLinks, AreRemovedThemselvesWithATree) {
    disk.write("target/f", "1");
    ASSERT_TRUE(mount());
    CWin32_fallback fallback;
    const std::pair<CFSSource*, std::string> rows[] = {{&fallback, disk.path() + "/"}, {&source, ""}};
    for (const auto& [remover, root] : rows) {
        disk.write("tree/own", "1");
        link("tree/link", "target");
        link("alone", "target");
        std::filesystem::create_symlink(disk / "nowhere", disk / "tree/broken");
        source.refresh();
        for (const char* dir : {"alone", "tree"}) remover->rem_dir(as_dir(root + dir));
        EXPECT_FALSE(std::filesystem::is_symlink(disk / "alone") || disk.exists("tree"));
        EXPECT_TRUE(disk.exists("target/f"));
    }
    EXPECT_THAT(all_names(source), UnorderedElementsAre("target/f"));
}

TEST_F(DirectorySourceLinks, OfTwoSpellingsTheFirstIsFoundAndNamesWithABackslashArePassedOver) {
    disk.write("..\\..\\x", "1");
    disk.write("d/FILE", "upper");
    disk.write("d/file", "lower");
    ASSERT_TRUE(mount());
    EXPECT_THAT(all_names(source), UnorderedElementsAre("d/file", "d/file"));
    EXPECT_EQ(read_all(source.open_read(as_path("d/file"), FFSOpenFlags::NONE)), "upper");
}

}  // namespace

#include <engine/filesystem/sources/directory.h>
#include <engine/filesystem/sources/fallback.h>

#include <gmock/gmock.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/sources/kit.h"
#include "tests/support/temp_directory.h"

namespace {

using testing::UnorderedElementsAre;

TEST(DirectorySourceLinks, AreFollowedButNotRoundInACircle) {
    TempDirectory disk;
    disk.write("a/f", "1");
    std::filesystem::create_directory_symlink(disk.path(), disk / "a/up");
    std::filesystem::create_directory_symlink(disk / "a", disk / "a/self");
    std::filesystem::create_directory_symlink(disk / "a", disk / "twin");
    std::filesystem::create_symlink(disk / "a/f", disk / "file");
    std::filesystem::create_symlink(disk / "nowhere", disk / "broken");
    CWin32_dir source(EFSSourceType::DIR);
    ASSERT_TRUE(source.init(as_dir(disk.path()), FFSAddSourceFlags::RECURSIVE, nullptr));
    EXPECT_THAT(all_names(source), UnorderedElementsAre("a/f", "twin/f", "file"));
}

TEST(DirectorySourceLinks, ThatLeadToEachOtherEndAndThoseToOnePlaceAllCount) {
    TempDirectory disk;
    for (const char from : std::string("12345678")) {
        disk.write(std::string("d") + from + "/f", "1");
        for (const char to : std::string("12345678")) {
            std::filesystem::create_directory_symlink(disk / (std::string("d") + to),
                                                      disk / (std::string("d") + from + "/l" + to));
        }
    }
    CWin32_dir source(EFSSourceType::DIR);
    ASSERT_TRUE(source.init(as_dir(disk.path()), FFSAddSourceFlags::RECURSIVE, nullptr));
    // Eight directories, seven links in each, and a chain that reached six of them for the first time.
    EXPECT_EQ(all_names(source).size(), 8u + 8 * 7 + 6);
    for (const char* name : {"d1/l8/f", "d8/l1/f", "d5/l4/f"}) EXPECT_TRUE(source.exists_whole(fs::path(name, true)));
}

TEST(DirectorySourceLinks, AreRemovedThemselvesWithATree) {
    TempDirectory disk;
    disk.write("target/f", "1");
    disk.write("tree/own", "1");
    std::filesystem::create_directory_symlink(disk / "target", disk / "tree/link");
    CWin32_dir source(EFSSourceType::DIR);
    ASSERT_TRUE(source.init(as_dir(disk.path()), FFSAddSourceFlags::RECURSIVE, nullptr));
    source.rem_dir(as_dir("tree/link"));
    EXPECT_THAT(all_names(source), UnorderedElementsAre("target/f", "tree/own"));
    EXPECT_EQ(source.dir_tree()->find("tree/link"), nullptr);
    CWin32_fallback fallback;
    for (CFSSource* remover : std::initializer_list<CFSSource*>{&source, &fallback}) {
        const std::string root = remover == &source ? "" : disk.path() + "/";
        disk.write("tree/own", "1");
        std::filesystem::create_directory_symlink(disk / "target", disk / "tree/link");
        std::filesystem::create_symlink(disk / "nowhere", disk / "tree/broken");
        std::filesystem::create_directory_symlink(disk / "target", disk / "alone");
        source.refresh();
        remover->rem_dir(as_dir(root + "alone"));
        remover->rem_dir(as_dir(root + "tree"));
        EXPECT_FALSE(std::filesystem::is_symlink(disk / "alone"));
        EXPECT_FALSE(disk.exists("tree"));
        EXPECT_TRUE(disk.exists("target/f"));
        if (remover == &source) EXPECT_THAT(all_names(source), UnorderedElementsAre("target/f"));
    }
}

TEST(DirectorySourceLinks, NamesWithABackslashArePassedOver) {
    TempDirectory disk;
    disk.write("..\\..\\x", "1");
    disk.write("b", "1");
    CWin32_dir source(EFSSourceType::DIR);
    ASSERT_TRUE(source.init(as_dir(disk.path()), FFSAddSourceFlags::RECURSIVE, nullptr));
    EXPECT_THAT(all_names(source), UnorderedElementsAre("b"));
}

TEST(DirectorySourceLinks, TwoSpellingsOfOneNameAreTwoFilesOfWhichTheFirstIsFound) {
    TempDirectory disk;
    disk.write("d/FILE", "upper");
    disk.write("d/file", "lower");
    CWin32_dir source(EFSSourceType::DIR);
    ASSERT_TRUE(source.init(as_dir(disk.path()), FFSAddSourceFlags::RECURSIVE, nullptr));
    EXPECT_THAT(all_names(source), UnorderedElementsAre("d/file", "d/file"));
    EXPECT_EQ(read_all(source.open_read(as_path("d/file"), FFSOpenFlags::NONE)), "upper");
}

}  // namespace

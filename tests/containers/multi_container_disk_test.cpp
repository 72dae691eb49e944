// Multi-container files on the disk.
#include <filesystem>
#include <thread>

#include <gtest/gtest.h>

#include <engine/filesystem/access/search.h>

#include "engine/platform/files.h"
#include "tests/containers/multi_container_support.h"
#include "tests/support/mounted_root.h"

namespace {

using test::Blobs;
using test::everything;
using test::fetch;
using test::opened;
using test::put;

class MultiContainerOnDisk : public MountedRoot {
protected:
    /// A file in which more is wasted than live.
    Blobs wear(CFileHashMultiContainer& file, std::uint32_t blobs) {
        EXPECT_TRUE(file.Create("sub/a.mc"));
        for (std::uint32_t round = 0; round < 4; ++round) {
            for (std::uint32_t i = 0; i < blobs; ++i)
                put(file, "c" + std::to_string(i % 3), i, std::string(200, static_cast<char>('a' + round)));
            EXPECT_TRUE(file.Save());
        }
        for (std::uint32_t i = 0; i < blobs / 5; ++i) file.Remove("c0", i);
        put(file, "large", 1, std::string(300u << 10, 'l'));
        EXPECT_TRUE(file.Save());
        return everything(file);
    }
    static void overwrite(const std::string& path, std::int64_t offset, const char* text) {
        platform::File bytes = platform::File::open(path.c_str(), {.access = platform::Access::WRITE});
        ASSERT_TRUE(bytes.seek(offset, platform::Origin::BEGIN) && bytes.write(text, 1) == 1);
    }
};

TEST_F(MultiContainerOnDisk, CompactingGivesBackWhatIsWasted) {
    CFileHashMultiContainer file;
    const Blobs before = wear(file, 500);
    std::filesystem::create_directory(directory_ / "sub/a.mc.new");
    EXPECT_FALSE(file.Compact()) << "the new file cannot be made";
    std::filesystem::remove(directory_ / "sub/a.mc.new");
    SMultiContainerStats stats;
    ASSERT_TRUE(file.Compact() && file.GetStats(stats));
    EXPECT_EQ(stats.wasted_bytes, 0u);
    EXPECT_EQ(stats.blobs, before.size());
    EXPECT_EQ(everything(file), before);
    EXPECT_TRUE(put(file, "c9", 1, "goes on") && file.Save());
    EXPECT_FALSE(directory_.exists("sub/a.mc.new"));
}

TEST_F(MultiContainerOnDisk, ManyThreadsFetchWhatWasOpenedWhateverBecomesOfItsName) {
    CFileHashMultiContainer file;
    const Blobs before = wear(file, 100);
#ifndef _WIN32  // where nobody can replace a file that is open
    directory_.write("other.mc", "no container");
    std::filesystem::rename(directory_ / "other.mc", directory_ / "sub/a.mc");
    EXPECT_FALSE(file.Compact());
    EXPECT_EQ(directory_.read("sub/a.mc"), "no container") << "what took its place is left alone";
#endif
    std::vector<std::thread> readers;
    for (int reader = 0; reader < 4; ++reader) readers.emplace_back([&] { EXPECT_EQ(everything(file), before); });
    for (std::thread& reader : readers) reader.join();
}

TEST_F(MultiContainerOnDisk, ABlobThatHasRottedStaysKnownAsRottenWhenTheRestIsCompacted) {
    CFileHashMultiContainer file;
    ASSERT_TRUE(file.Create("a.mc") && put(file, "c", 1, "gone") && put(file, "c", 2, "rots") &&
                put(file, "c", 3, "keeps"));
    ASSERT_TRUE(file.Save() && file.Remove("c", 1) && file.Save());
    file.Close();
    overwrite(directory_ / "a.mc", container::data_offset + 5, "!");
    ASSERT_TRUE(file.Open("a.mc", true) && file.Compact());
    EXPECT_EQ(fetch(file, "c", 2), "(none)");
    EXPECT_EQ(fetch(file, "c", 3), "keeps");
    ztl::vector<fs::string> report;
    EXPECT_FALSE(file.Verify(report));
    EXPECT_EQ(report.size(), 1u);
}

TEST_F(MultiContainerOnDisk, KeepsBlobsBeyondFourGigabytes) {
    constexpr std::uint64_t far = std::uint64_t{5} << 30;
    const std::string path =
        directory_.write("far.mc", test::made_of("", "", 0, [](container::Commit& c) { c.index_offset = far; }));
    std::filesystem::resize_file(path, far);  // a hole, which takes no space
    fs::refresh();
    CFileHashMultiContainer file;
    ASSERT_TRUE(file.Open("far.mc", true));
    ASSERT_TRUE(put(file, "c", 1, "far away") && put(file, "c", 2, std::string(5000, 'z'), true) && file.Save());
    const Blobs before = everything(file);
    file.Close();
    EXPECT_GT(std::filesystem::file_size(path), far);
    EXPECT_EQ(opened("far.mc"), before);
    ASSERT_TRUE(file.Open("far.mc", true) && file.Compact());
    EXPECT_EQ(everything(file), before);
    EXPECT_LT(std::filesystem::file_size(path), 1000u);
}

}  // namespace

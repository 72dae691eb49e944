#include <engine/filesystem.h>
#include <engine/filesystem/comfort.h>

#include <gmock/gmock.h>

#include <filesystem>
#include <string>
#include <vector>

namespace {

using testing::ElementsAre;

constexpr auto mount_flags = FFSAddSourceFlags::RECURSIVE | FFSAddSourceFlags::INDEX_NAMES;

class Comfort : public testing::Test {
protected:
    void SetUp() override {
        std::filesystem::create_directory(root_);
        ASSERT_TRUE(fs::init(fs::from_path(root_).c_str(), mount_flags, "", false, false, nullptr));
    }
    void TearDown() override {
        fs::shutdown();
        std::filesystem::remove_all(root_);
    }

    const std::filesystem::path root_ = std::filesystem::current_path() / u8"comfort_\u30dd";
};

TEST_F(Comfort, FilesComeBackInAnyContainerAlsoWithoutTheirLength) {
    const std::vector<std::byte> bytes(200'000, std::byte{7});
    const std::string long_text(300'000, 'x');
    std::vector<std::byte> read_back;
    std::string text = "before";
    ASSERT_TRUE(fs::write_file(bytes, "bin/seven.bin") && fs::write_file("three", "a.txt") &&
                fs::write_file("", "e.txt") && fs::save_text_file(long_text, "x.gz", FFSOpenFlags::GZIP_LEVEL1));
    EXPECT_TRUE(fs::read_file(read_back, "bin/seven.bin") && read_back == bytes);
    EXPECT_TRUE(fs::read_file(text, "A.txt") && text == "three");
    EXPECT_FALSE(fs::read_file(text, "none.txt"));
    EXPECT_EQ(text, "three");
    EXPECT_EQ(fs::last_error().code, EFSError::NOT_FOUND);
    EXPECT_TRUE(fs::read_file(text, "e.txt") && text.empty());
    const fs::file_ptr in = fs::open_file("x.gz", EFSMode::READ, FFSOpenFlags::GZIP);
    EXPECT_TRUE(fs::read_rest(in.get(), text) && text == long_text);
}

TEST_F(Comfort, SearchesFreeThemselvesAndPathsKeepTheirText) {
    ASSERT_TRUE(fs::write_file("1", "levels/one.txt") && fs::write_file("2", "levels/deep/two.txt"));
    const fs::found_files found = fs::find_files("levels", "*.txt");
    EXPECT_THAT(std::vector<std::string>(found.begin(), found.end()),
                ElementsAre("levels/deep/two.txt", "levels/one.txt"));
    EXPECT_TRUE(fs::find_files("levels", "*.png").empty());
    fs::string native;
    ASSERT_TRUE(fs::native_path("one.txt", native));
    EXPECT_TRUE(std::filesystem::equivalent(fs::to_path(native), root_ / "levels/one.txt"));
}

}  // namespace

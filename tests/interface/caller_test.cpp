// What a caller has: the exported headers alone, with their conveniences, and sources and files of its own.
#include <engine/filesystem.h>
#include <engine/filesystem/comfort.h>

#include <gmock/gmock.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <string_view>
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
    EXPECT_FALSE(fs::read_rest(fs::open_file("none.txt", EFSMode::READ).get(), text));
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

constexpr std::string_view greeting = "hello from outside";
constexpr std::uint64_t failed = ~std::uint64_t{0};

/// Serves one read-only text.
class GreetingFile : public SFsFile {
public:
    std::uint64_t read(void* buffer, std::uint64_t size) override {
        const std::uint64_t count = greeting.copy(static_cast<char*>(buffer), size, at_);
        at_ += count;
        return count;
    }
    std::uint64_t write(const void*, std::uint64_t) override { return failed; }
    bool seek(std::int64_t offset, EFSSeek::TYPE) override { return (at_ = static_cast<std::uint64_t>(offset), true); }
    std::uint64_t length() override { return greeting.size(); }
    std::uint64_t tell() override { return at_; }

private:
    std::uint64_t at_ = 0;
};

/// Holds "greetings/hello.txt" and nothing else.
class GreetingSource : public fs::ReadOnlySource {
public:
    GreetingSource() { init(fs::path("/greetings/", true), FFSAddSourceFlags::NONE, nullptr); }
    bool exists(const fs::path& p) override { return p == fs::path("greetings/hello.txt", true); }
    SFsFile* open_read(const fs::path& p, FFSOpenFlags::FLAGS) override {
        return exists(p) ? new GreetingFile : nullptr;
    }
    FS_NAME* get_file_list(const char*, const char*, bool) override {
        auto* const node = static_cast<FS_NAME*>(std::malloc(sizeof(FS_NAME)));
        *node = {.name = strdup("greetings/hello.txt"), .next = nullptr};
        return node;
    }
};

TEST(PlugIn, AnOwnSourceAnswersLikeTheBuiltInOnesAndByItsBaseWhatItLeavesOut) {
    const std::string root = fs::from_path(std::filesystem::current_path());
    ASSERT_TRUE(fs::init(root.c_str(), FFSAddSourceFlags::NONE, nullptr, true, false, nullptr));
    auto* const source = new GreetingSource;
    fs::add_source(source, source->flags());
    const char* const name = "Greetings\\HELLO.txt";
    EXPECT_EQ(fs::get_source_name(name) + fs::full_path(name), "/greetings/greetings/hello.txt");
    EXPECT_EQ(fs::write_time(name), -1);
    EXPECT_TRUE(fs::exists(name) && fs::read_only(name) && fs::is_installed(name));
    fs::refresh();
    for (const char* found : fs::find_files("greetings", "*.txt")) EXPECT_STREQ(found, "greetings/hello.txt");

    fs::file_ptr file = fs::open_file(name, EFSMode::READ);
    ASSERT_NE(file, nullptr);
    EXPECT_STREQ(fs::file_name(file.get()), "");
    std::string rest;
    EXPECT_TRUE(fs::seek(file.get(), 6, EFSSeek::BEGIN) && fs::read_rest(file.get(), rest));
    EXPECT_EQ(rest, "from outside");
    EXPECT_EQ(fs::tell(file.get()), fs::length(file.get()));
    EXPECT_EQ(fs::write(file.get(), "x", 1), failed);
    char byte = 0;
    std::uint32_t moved = 0;
    EXPECT_FALSE(fs::set_eof(file.get()) || file->cancel_io());
    EXPECT_FALSE(file->read_async(&byte, 0, 1, nullptr, 0) || file->write_async(&byte, 0, 1, nullptr, 0));
    file->cancel_async(nullptr);
    EXPECT_EQ(file->read_overlapped(&byte, 1, &moved, nullptr), 2);
    EXPECT_EQ(file->write_overlapped(&byte, 1, &moved, nullptr), 2);
    file.reset();
    EXPECT_TRUE(fs::rem_source(source));
    delete source;
    fs::shutdown();

    // A null file is answered without a call.
    SFsFile* const none = nullptr;
    for (const std::uint64_t answer :
         {fs::read(none, nullptr, 1), fs::write(none, nullptr, 1), fs::length(none), fs::tell(none)})
        EXPECT_EQ(answer, failed);
    EXPECT_FALSE(fs::seek(none, 0, EFSSeek::BEGIN) || fs::set_eof(none));
    EXPECT_EQ(fs::file_name(none), nullptr);
    fs::close(none);
}

}  // namespace

// A caller's own source and file, over the exported interface alone.
#include <engine/filesystem.h>

#include <gmock/gmock.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <string_view>
#include <type_traits>

namespace {

constexpr std::string_view greeting = "hello from outside";

/// Serves one read-only text.
class GreetingFile : public SFsFile {
public:
    std::uint64_t read(void* buffer, std::uint64_t size) override {
        const std::uint64_t count = greeting.copy(static_cast<char*>(buffer), size, at_);
        at_ += count;
        return count;
    }
    std::uint64_t write(const void*, std::uint64_t) override { return ~std::uint64_t{0}; }
    bool seek(std::int64_t offset, EFSSeek::TYPE origin) override {
        if (origin != EFSSeek::BEGIN || static_cast<std::uint64_t>(offset) > greeting.size()) return false;
        at_ = static_cast<std::uint64_t>(offset);
        return true;
    }
    std::uint64_t length() override { return greeting.size(); }
    std::uint64_t tell() override { return at_; }

private:
    std::uint64_t at_ = 0;
};

/// Holds "greetings/hello.txt" and nothing else.
class GreetingSource : public fs::ReadOnlySource {
public:
    GreetingSource() {
        fs::path root;
        root.Set("/greetings", "", true);
        init(root, FFSAddSourceFlags::INDEX_NAMES, nullptr);
        tree_.set_name("greeting");
        tree_.add_path("greetings");
    }
    EFSSourceType::TYPE type() override { return EFSSourceType::PLS; }
    bool exists(const fs::path& p) override { return p == fs::path("greetings/hello.txt", true); }
    std::int64_t write_time(const fs::path&) override { return 42; }
    SFsFile* open_read(const fs::path& p, FFSOpenFlags::FLAGS) override {
        return exists(p) ? new GreetingFile : nullptr;
    }
    FS_NAME* get_file_list(const char*, const char*, bool) override {
        auto* const node = static_cast<FS_NAME*>(std::malloc(sizeof(FS_NAME)));
        *node = {.name = strdup("greetings/hello.txt"), .next = nullptr};
        return node;
    }
    fs::dir* dir_tree() override { return &tree_; }

private:
    fs::dir tree_;
};

class PlugIn : public testing::Test {
protected:
    void SetUp() override {
        const std::string root = std::filesystem::current_path().generic_string();
        ASSERT_TRUE(fs::init(root.c_str(), FFSAddSourceFlags::NONE, nullptr, true, false, nullptr));
        source_ = new GreetingSource;
        fs::add_source(source_, source_->flags());
    }
    void TearDown() override { fs::shutdown(); }

    GreetingSource* source_ = nullptr;
};

TEST_F(PlugIn, AnOwnSourceAnswersLikeTheBuiltInOnes) {
    EXPECT_TRUE(fs::exists("Greetings\\HELLO.txt"));
    EXPECT_EQ(fs::get_source_name("greetings/hello.txt"), "/greetings/");
    EXPECT_EQ(fs::full_path("greetings/hello.txt"), "greetings/hello.txt");
    EXPECT_EQ(fs::write_time("greetings/hello.txt"), 42);
    EXPECT_TRUE(fs::read_only("greetings/hello.txt"));
    EXPECT_TRUE(fs::is_installed("greetings/hello.txt"));
    EXPECT_NE(fs::search_dir("greetings"), nullptr);
    FS_NAME* const names = fs::search("greetings", "*.txt", false, true);
    ASSERT_NE(names, nullptr);
    EXPECT_STREQ(names->name, "greetings/hello.txt");
    fs::free_names(names);
    fs::string text;
    EXPECT_TRUE(fs::load_text_file(text, "greetings/hello.txt"));
    EXPECT_EQ(text, "hello from outside");
    ztl::vector<SFsSourceInfo> holders;
    fs::find_holders("greetings/hello.txt", holders);
    ASSERT_EQ(holders.size(), 1u);
    EXPECT_EQ(holders[0].type, EFSSourceType::PLS);
    EXPECT_TRUE(fs::rem_source(source_));
    EXPECT_FALSE(fs::exists("greetings/hello.txt"));
    delete source_;
}

TEST_F(PlugIn, AnOwnFileWorksThroughWrappersAndStreams) {
    SFsFile* const file = fs::open("greetings/hello.txt", EFSMode::READ);
    ASSERT_NE(file, nullptr);
    EXPECT_STREQ(fs::file_name(file), "");
    EXPECT_EQ(fs::length(file), 18u);
    EXPECT_TRUE(fs::seek(file, 6, EFSSeek::BEGIN));
    char word[5] = "";
    EXPECT_EQ(fs::read(file, word, 4), 4u);
    EXPECT_STREQ(word, "from");
    EXPECT_EQ(fs::tell(file), 10u);
    EXPECT_EQ(fs::write(file, "x", 1), ~std::uint64_t{0});
    // What it does not override has the answers of the base.
    std::uint32_t moved = 0;
    EXPECT_FALSE(fs::set_eof(file));
    EXPECT_FALSE(file->read_async(word, 0, 1, nullptr, 0) || file->write_async(word, 0, 1, nullptr, 0));
    EXPECT_FALSE(file->cancel_io());
    file->cancel_async(nullptr);
    EXPECT_EQ(file->read_overlapped(word, 1, &moved, nullptr), 2);
    EXPECT_EQ(file->write_overlapped(word, 1, &moved, nullptr), 2);
    fs::close(file);
}

TEST(NullFile, IsAnsweredWithoutACall) {
    EXPECT_EQ(fs::read(static_cast<SFsFile*>(nullptr), nullptr, 1), ~std::uint64_t{0});
    EXPECT_EQ(fs::write(nullptr, nullptr, 1), ~std::uint64_t{0});
    EXPECT_EQ(fs::length(nullptr), ~std::uint64_t{0});
    EXPECT_EQ(fs::tell(nullptr), ~std::uint64_t{0});
    EXPECT_FALSE(fs::seek(nullptr, 0, EFSSeek::BEGIN));
    EXPECT_FALSE(fs::set_eof(nullptr));
    EXPECT_EQ(fs::file_name(nullptr), nullptr);
    fs::close(nullptr);
}

TEST(Interface, TypesKeepTheirPromises) {
    static_assert(!std::is_copy_constructible_v<SFsFile> && !std::is_copy_constructible_v<CFSSource>);
    static_assert(std::is_abstract_v<SFsFile> && std::is_abstract_v<CFSSource>);
    static_assert(std::is_nothrow_move_constructible_v<fs::path> && std::is_nothrow_move_assignable_v<fs::path>);
    static_assert(sizeof(EFSMode::TYPE) == 4 && sizeof(FFSOpenFlags::FLAGS) == 4 && sizeof(EFSSeek::TYPE) == 4);
    EXPECT_FALSE(fs::rem_source(nullptr));
}

}  // namespace

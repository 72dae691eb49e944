// A caller's own source and file, over the exported interface alone.
#include <engine/filesystem.h>
#include <engine/filesystem/comfort.h>

#include <gmock/gmock.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <string_view>

namespace {

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
}

TEST(NullFile, IsAnsweredWithoutACall) {
    SFsFile* const none = nullptr;
    for (const std::uint64_t answer :
         {fs::read(none, nullptr, 1), fs::write(none, nullptr, 1), fs::length(none), fs::tell(none)})
        EXPECT_EQ(answer, failed);
    EXPECT_FALSE(fs::seek(none, 0, EFSSeek::BEGIN) || fs::set_eof(none));
    EXPECT_EQ(fs::file_name(none), nullptr);
    fs::close(none);
}

}  // namespace

#include "engine/platform/files.h"
#include "engine/platform/process.h"
#include "tests/sources/kit.h"

namespace {

class Fallback : public testing::Test {
protected:
    TempDirectory disk_;
    CWin32_fallback source_;
};

TEST_F(Fallback, AsksTheDiskInUniversalTimeAndKeepsNothingOfItsMountButTheFlags) {
    EXPECT_TRUE(source_.init(as_dir(disk_.path()), FFSAddSourceFlags::PROTECTED, nullptr));
    EXPECT_EQ(source_.flags(), FFSAddSourceFlags::PROTECTED);
    EXPECT_TRUE(source_.path().Empty());
    EXPECT_TRUE(source_.writable() && !source_.is_protected());
    EXPECT_TRUE(source_.exists(as_dir(disk_.path()))) << "a directory has attributes too";
    fs::path out;
    source_.root_path(out, as_path("never/there"));
    EXPECT_EQ(out, as_path("never/there"));
    EXPECT_TRUE(write_all(source_.open_append(as_path(disk_ / "made"), FFSOpenFlags::NONE), "1")) << "open always";
    constexpr std::int64_t time = 132'000'000'000'000'000;
    EXPECT_TRUE(source_.set_write_time(as_path(disk_ / "made"), time));
    const auto attributes = platform::get_attributes((disk_ / "made").c_str());
    EXPECT_TRUE(attributes && attributes->write_time == time && attributes->access_time == time);
    EXPECT_TRUE(source_.set_write_time(as_path(disk_ / "none"), time)) << "true even where the disk fails";
    EXPECT_FALSE(source_.set_write_time(fs::path(), time));
}

TEST_F(Fallback, FindsAGzipFileBesideTheExecutable) {
    const std::string beside = std::string(platform::executable_directory()) + "beside_exe.bin";
    ASSERT_TRUE(write_file(beside, "plain"));
    for (const std::string& name : {std::string("beside_exe.bin"), beside})
        EXPECT_EQ(read_all(source_.open_read(as_path(name), FFSOpenFlags::GZIP)), "plain") << name;
    std::filesystem::remove(beside);
}

class CountingFallback : public CWin32_fallback {
public:
    void rem_dir(const fs::path& p) override {
        ++calls;
        CWin32_fallback::rem_dir(p);
    }
    int calls = 0;
};

TEST_F(Fallback, RemovesATreeThroughItsOwnOperationAndLeavesHiddenItems) {
    for (const char* name : {"T/f", "T/Sub/g", "U/#kept", "U/gone", "out"}) disk_.write(name, "1");
    CountingFallback source;
    source.rem_dir(as_dir(disk_ / "t"));
    EXPECT_EQ(source.calls, 2) << "a derived class hears of each directory";
    for (const char* dir : {"u", "out"}) source.rem_dir(as_dir(disk_ / dir));
    for (const char* dir : {"", "/", "..", "../x/"}) source.rem_dir(as_dir(dir));
    EXPECT_FALSE(disk_.exists("T") || disk_.exists("U/gone"));
    EXPECT_TRUE(disk_.exists("U/#kept"));
    EXPECT_TRUE(disk_.exists("out")) << "a file cannot be enumerated";
    EXPECT_EQ(source.calls, 8) << "none of these went any further";
}

}  // namespace

#include <engine/filesystem/sources/fallback.h>

#include <gmock/gmock.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "engine/platform/files.h"
#include "engine/platform/process.h"
#include "tests/sources/kit.h"
#include "tests/support/temp_directory.h"

namespace {

class Fallback : public testing::Test {
protected:
    TempDirectory disk_;
    CWin32_fallback source_;
};

TEST_F(Fallback, AsksTheDiskAndKeepsNothingOfItsMountButTheFlags) {
    EXPECT_TRUE(source_.init(as_dir(disk_.path()), FFSAddSourceFlags::PROTECTED, nullptr));
    EXPECT_EQ(source_.flags(), FFSAddSourceFlags::PROTECTED);
    EXPECT_TRUE(source_.path().Empty());
    EXPECT_TRUE(source_.writable() && !source_.is_protected());
    EXPECT_TRUE(source_.exists(as_dir(disk_.path()))) << "a directory has attributes too";
    fs::path out;
    source_.root_path(out, as_path("never/there"));
    EXPECT_EQ(out, as_path("never/there"));
    EXPECT_EQ(source_.open_write(as_path(disk_ / "none"), FFSOpenFlags::NONE), nullptr) << "the file must exist";
    EXPECT_TRUE(write_all(source_.open_append(as_path(disk_ / "made"), FFSOpenFlags::NONE), "1")) << "open always";
}

TEST_F(Fallback, FindsAGzipFileBesideTheExecutable) {
    const std::string beside = std::string(platform::executable_directory()) + "beside_exe.bin";
    std::ofstream(beside, std::ios::binary) << "plain";
    for (const std::string& name : {std::string("beside_exe.bin"), beside}) {
        SFsFile* const file = source_.open_read(as_path(name), FFSOpenFlags::GZIP);
        char bytes[8] = "";
        EXPECT_EQ(fs::read(file, bytes, sizeof bytes), 5u) << name;
        EXPECT_STREQ(bytes, "plain");
        fs::close(file);
    }
    std::remove(beside.c_str());
}

TEST_F(Fallback, SetsAllTimesInUniversalTime) {
    disk_.write("f", "1");
    const std::int64_t time = 132'000'000'000'000'000;
    EXPECT_TRUE(source_.set_write_time(as_path(disk_ / "f"), time));
    EXPECT_EQ(platform::get_attributes((disk_ / "f").c_str())->write_time, time);
    EXPECT_EQ(platform::get_attributes((disk_ / "f").c_str())->access_time, time);
    EXPECT_TRUE(source_.set_write_time(as_path(disk_ / "none"), time)) << "true even where the disk refuses";
    EXPECT_FALSE(source_.set_write_time(fs::path(), time));
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
    EXPECT_FALSE(disk_.exists("T"));
    source.rem_dir(as_dir(disk_ / "u"));
    EXPECT_TRUE(disk_.exists("U/#kept"));
    EXPECT_FALSE(disk_.exists("U/gone"));
    source.rem_dir(as_dir(disk_ / "out"));
    EXPECT_TRUE(disk_.exists("out")) << "a file cannot be enumerated";
    for (const char* dir : {"", "/", "..", "../x/"}) source.rem_dir(as_dir(dir));
    EXPECT_EQ(source.calls, 8) << "none of these went any further";
}

}  // namespace

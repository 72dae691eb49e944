#include <engine/filesystem/sources/fallback.h>

#include <gmock/gmock.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "engine/platform/files.h"
#include "engine/platform/process.h"
#include "tests/sources/kit.h"
#include "tests/support/temp_directory.h"

namespace {

using testing::ElementsAre;

class Fallback : public testing::Test {
protected:
    TempDirectory disk_;
    CWin32_fallback source_;
};

TEST_F(Fallback, AnswersFromTheDiskInAnyCase) {
    disk_.write("Sub/File", "1");
    const fs::path file = as_path(disk_ / "sub/file");
    EXPECT_TRUE(source_.exists(file));
    EXPECT_TRUE(source_.exists(as_dir(disk_ / "sub"))) << "a directory has attributes too";
    EXPECT_FALSE(source_.exists(as_path(disk_ / "sub/none")));
    EXPECT_FALSE(source_.exists(fs::path()));
    EXPECT_FALSE(source_.exists(as_path(disk_ / std::string(250, 'x'))));
    fs::path out;
    source_.full_path(out, file);
    EXPECT_EQ(out, file);
    source_.root_path(out, as_path("never/there"));
    EXPECT_EQ(out, as_path("never/there"));
    EXPECT_EQ(source_.type(), EFSSourceType::SPECIAL);
    EXPECT_TRUE(source_.writable());
}

TEST_F(Fallback, KeepsNothingOfItsMountButTheFlags) {
    EXPECT_TRUE(source_.init(as_dir(disk_.path()), FFSAddSourceFlags::PROTECTED, nullptr));
    EXPECT_EQ(source_.flags(), FFSAddSourceFlags::PROTECTED);
    EXPECT_TRUE(source_.path().Empty());
    EXPECT_TRUE(source_.writable());
    EXPECT_FALSE(source_.is_protected());
    EXPECT_EQ(source_.create_write(as_path(disk_ / "new"), FFSOpenFlags::NONE), nullptr);
    EXPECT_FALSE(source_.mkdir(as_dir(disk_ / "new")));
    EXPECT_EQ(source_.dir_tree(), nullptr);
    EXPECT_STREQ(source_.root_dir(), "");
    EXPECT_TRUE(std::filesystem::is_empty(disk_.path()));
}

TEST_F(Fallback, OpensInEachModeNamesTheHandleAndTellsTheMonitor) {
    disk_.write("F", "12345");
    const fs::path f = as_path(disk_ / "f");
    const RecordingMonitor monitor;
    EXPECT_TRUE(write_all(source_.open_append(f, FFSOpenFlags::NONE), "67"));
    EXPECT_EQ(disk_.read("F"), "1234567");
    EXPECT_TRUE(write_all(source_.open_read_write(f, FFSOpenFlags::NONE), "ab"));
    EXPECT_EQ(disk_.read("F"), "ab34567");
    EXPECT_TRUE(write_all(source_.open_read_write(f, FFSOpenFlags::CREATE), "x"));
    EXPECT_TRUE(write_all(source_.open_write(f, FFSOpenFlags::NONE), "y"));
    EXPECT_EQ(disk_.read("F"), "y");
    SFsFile* file = source_.open_read(f, FFSOpenFlags::NONE);
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(std::string(file->name), disk_ / "f");
    fs::close(file);
    EXPECT_THAT(monitor.touched, ElementsAre("f 2+0", "f 3+0", "f 3+32", "f 1+0", "f 0+0"));
    EXPECT_EQ(source_.open_write(as_path(disk_ / "none"), FFSOpenFlags::NONE), nullptr) << "the file must exist";
    EXPECT_TRUE(write_all(source_.open_append(as_path(disk_ / "made"), FFSOpenFlags::NONE), "1")) << "open always";
    EXPECT_EQ(source_.open_append(f, FFSOpenFlags::GZIP_LEVEL5), nullptr);
    EXPECT_EQ(source_.open_read_write(f, FFSOpenFlags::GZIP | FFSOpenFlags::CREATE), nullptr);
    EXPECT_EQ(source_.open_read(fs::path(), FFSOpenFlags::NONE), nullptr);
}

TEST_F(Fallback, FindsAGzipFileBesideTheExecutable) {
    const std::string beside = std::string(platform::executable_directory()) + "beside_exe.bin";
    std::ofstream(beside, std::ios::binary) << "plain";
    for (const std::string& name : {std::string("beside_exe.bin"), beside}) {
        SFsFile* const file = source_.open_read(as_path(name), FFSOpenFlags::GZIP);
        ASSERT_NE(file, nullptr) << name;
        char bytes[8] = "";
        EXPECT_EQ(fs::read(file, bytes, sizeof bytes), 5u);
        EXPECT_STREQ(bytes, "plain");
        fs::close(file);
    }
    std::remove(beside.c_str());
}

TEST_F(Fallback, SetsAllTimesInUniversalTime) {
    disk_.write("f", "1");
    const fs::path f = as_path(disk_ / "f");
    const std::int64_t time = 132'000'000'000'000'000;
    EXPECT_TRUE(source_.set_write_time(f, time));
    EXPECT_EQ(source_.write_time(f), time);
    EXPECT_EQ(platform::get_attributes((disk_ / "f").c_str())->access_time, time);
    EXPECT_EQ(source_.write_time(as_path(disk_ / "none")), -1);
    EXPECT_TRUE(source_.set_write_time(as_path(disk_ / "none"), time)) << "true even where the disk refuses";
    EXPECT_FALSE(source_.set_write_time(fs::path(), time));
}

TEST_F(Fallback, SetsTheReadOnlyAttributeThatBindsDeletion) {
    disk_.write("f", "1");
    const fs::path f = as_path(disk_ / "f");
    EXPECT_FALSE(source_.read_only(f));
    EXPECT_TRUE(source_.set_read_only(f, true));
    EXPECT_TRUE(source_.read_only(f));
    EXPECT_FALSE(source_.rem_file(f));
    EXPECT_TRUE(source_.set_read_only(f, false));
    EXPECT_TRUE(source_.rem_file(f));
    EXPECT_FALSE(source_.set_read_only(f, true));
    EXPECT_FALSE(source_.rem_file(f));
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

TEST_F(Fallback, RenamesNativeFiles) {
    disk_.write("Old", "1");
    disk_.write("taken", "2");
    const fs::path old_name = as_path(disk_ / "old");
    EXPECT_FALSE(source_.rename_file(old_name, as_path(disk_ / "taken")));
    EXPECT_FALSE(source_.rename_file(old_name, as_path(disk_ / "a?")));
    EXPECT_TRUE(source_.rename_file(old_name, fs::path((disk_ / "New/Name").c_str(), false)));
    EXPECT_EQ(disk_.read("New/Name"), "1");
}

}  // namespace

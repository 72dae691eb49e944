#include <engine/filesystem/access.h>
#include <engine/filesystem/registry.h>

#include <gmock/gmock.h>

#include <cstring>
#include <fstream>
#include <string>

#include "engine/filesystem/registry/registry.h"
#include "tests/access/files.h"
#include "tests/support/memory_source.h"

namespace {

using test::load;
using test::MemorySource;
using test::mount_memory;
using test::save;
using testing::ElementsAre;
using Flags = FFSOpenFlags;

class Open : public testing::Test {
protected:
    void SetUp() override { fs::clear_error(); }
    void TearDown() override { test::unmount_all(); }
};

TEST_F(Open, IsRefusedWithoutSourcesOrName) {
    for (int mode = 0; mode < 4; ++mode) EXPECT_EQ(fs::open("x", static_cast<EFSMode::TYPE>(mode)), nullptr);
    EXPECT_EQ(fs::last_error().code, EFSError::NOT_INITIALIZED);
    MemorySource* const source = mount_memory("/a/");
    for (const char* path : {"", ".", "a/..", static_cast<const char*>(nullptr)}) {
        for (int mode = 0; mode < 4; ++mode) {
            EXPECT_EQ(fs::open(path, static_cast<EFSMode::TYPE>(mode)), nullptr);
            EXPECT_EQ(fs::last_error().code, EFSError::INVALID_NAME);
        }
    }
    for (const char* path : {"..", "../x", "../../x", "dir/"}) {
        EXPECT_EQ(fs::open(path, EFSMode::WRITE), nullptr) << path;
    }
    EXPECT_TRUE(source->made.empty());
}

TEST_F(Open, IsRefusedWhenModeAndFlagsExcludeEachOther) {
    MemorySource* const source = mount_memory("/a/");
    source->add("x", "");
    const struct {
        EFSMode::TYPE mode;
        Flags::FLAGS flags;
        bool opens;
    } rows[] = {
        {EFSMode::WRITE, Flags::GZIP_LEVEL9, true},
        {EFSMode::READ, Flags::GZIP, true},
        {EFSMode::APPEND, Flags::GZIP_LEVEL1, false},
        {EFSMode::APPEND, Flags::GZIP_LEVEL5, false},
        {EFSMode::READ_WRITE, Flags::GZIP_LEVEL9, false},
        {EFSMode::READ_WRITE, Flags::CREATE | Flags::GZIP, false},
        {EFSMode::READ_WRITE, Flags::GZIP, true},
        {EFSMode::READ_WRITE, Flags::CREATE, true},
        {EFSMode::APPEND, Flags::CREATE | Flags::GZIP, true},
        {static_cast<EFSMode::TYPE>(4), Flags::NONE, false},
        {static_cast<EFSMode::TYPE>(~0u), Flags::NONE, false},
    };
    for (const auto& row : rows) {
        source->open_flags.clear();
        SFsFile* const file = fs::open("x", row.mode, row.flags);
        EXPECT_EQ(file != nullptr, row.opens) << row.mode << ' ' << row.flags;
        if (!row.opens) {
            EXPECT_TRUE(source->open_flags.empty());
            EXPECT_EQ(fs::last_error().code, EFSError::INVALID_ARGUMENT);
        }
        fs::close(file);
    }
}

TEST_F(Open, HandsTheFlagsOnAsTheyAre) {
    MemorySource* const source = mount_memory("/a/");
    source->add("x", "");
    for (std::uint32_t bit = Flags::IN_CACHE_DIR << 1; bit != 0; bit <<= 1) {
        const auto flags = static_cast<Flags::FLAGS>(bit);
        fs::close(fs::open("x", EFSMode::READ, flags));
        fs::close(fs::open("x", EFSMode::WRITE, flags));
        EXPECT_EQ(source->read_flags, flags);
        EXPECT_EQ(source->open_flags.back(), flags);
    }
}

TEST_F(Open, ReadsFromTheFirstSourceThatCanOpenTheName) {
    MemorySource* const second = mount_memory("/second/");
    second->add("dir/x.txt", "second");
    MemorySource* const first = mount_memory("/first/");
    first->add("dir/x.txt", "first");
    EXPECT_EQ(load("DIR\\.\\X.txt"), "first");
    first->refuses_to_open = true;  // holding a name is not enough
    EXPECT_EQ(load("dir/x.txt"), "second");
    second->refuses_to_open = true;
    EXPECT_EQ(fs::open("dir/x.txt", EFSMode::READ), nullptr);
    EXPECT_EQ(fs::last_error().code, EFSError::NOT_FOUND);
    EXPECT_EQ(fs::last_error().path, "dir/x.txt");
    EXPECT_FALSE(fs::last_error().text.empty());
}

TEST_F(Open, WritesWhereTheNameIsAndElseCreatesInTheFirstSource) {
    MemorySource* const second = mount_memory("/second/");
    second->add("old.txt", "old");
    MemorySource* const first = mount_memory("/first/");
    EXPECT_TRUE(save("Old.TXT", "new"));
    EXPECT_EQ(second->content("old.txt"), "new");
    EXPECT_TRUE(save("old.txt", "er", EFSMode::APPEND));
    EXPECT_EQ(second->content("old.txt"), "newer");
    EXPECT_TRUE(save("old.txt", "N", EFSMode::READ_WRITE));
    EXPECT_EQ(second->content("old.txt"), "Newer");
    EXPECT_TRUE(first->made.empty());

    EXPECT_TRUE(save("Sub\\Made.txt", "1"));
    EXPECT_TRUE(save("Sub/Appended.txt", "2", EFSMode::APPEND));
    EXPECT_TRUE(save("Sub/Both.txt", "3", EFSMode::READ_WRITE));
    EXPECT_THAT(first->made, ElementsAre("create_write Sub/Made.txt", "create_write Sub/Appended.txt",
                                         "create_read_write Sub/Both.txt"));
    EXPECT_EQ(first->content("sub/appended.txt"), "2");
    EXPECT_NE(fs::search_dir("sub"), nullptr);  // the directory joined the index, the file did not
    EXPECT_EQ(fs::search_dir("sub/made.txt"), nullptr);
}

TEST_F(Open, AProtectedSourceShieldsTheNamesThatItHolds) {
    MemorySource* const last = mount_memory("/last/");
    last->add("shielded.txt", "stays");
    MemorySource* const shield = mount_memory("/shield/");
    shield->add("shielded.txt", "");
    shield->is_writable = false;
    shield->is_shielding = true;
    for (const EFSMode::TYPE mode : {EFSMode::WRITE, EFSMode::APPEND, EFSMode::READ_WRITE}) {
        EXPECT_FALSE(save("shielded.txt", "x", mode));
        EXPECT_EQ(fs::last_error().code, EFSError::ACCESS_DENIED);
    }
    EXPECT_EQ(last->content("shielded.txt"), "stays");
    shield->is_shielding = false;  // not writable alone is passed over
    EXPECT_TRUE(save("shielded.txt", "written"));
    EXPECT_EQ(last->content("shielded.txt"), "written");
    EXPECT_FALSE(save("new.txt", "x"));  // the first source creates, or nobody
    EXPECT_EQ(fs::last_error().code, EFSError::READ_ONLY);
    EXPECT_TRUE(shield->made.empty());
    EXPECT_EQ(last->content("new.txt"), "(none)");
}

struct InPlaceRow {
    const char* label;
    EFSMode::TYPE mode;
    EFSError::TYPE first_fails;   // NONE: opens; IN_USE and the like: holds the name, and fails so
    EFSError::TYPE second_fails;  // as above
    bool first_holds, second_holds;
    const char* first;  // what it holds afterwards
    const char* second;
    EFSError::TYPE code;  // NONE: the open succeeded
};

TEST_F(Open, BehindASourceThatHoldsTheNameAndFailsNothingIsWritten) {
    using enum EFSError::TYPE;
    using enum EFSMode::TYPE;
    const InPlaceRow rows[] = {
        {"a failure of the creating source stands", APPEND, IO, NONE, true, false, "old", "(none)", IO},
        {"for every mode", READ_WRITE, IN_USE, NONE, true, false, "old", "(none)", IN_USE},
        {"and does not send the bytes elsewhere", WRITE, ACCESS_DENIED, NONE, true, true, "old", "old", ACCESS_DENIED},
        {"what the disk has lost is made anew", WRITE, NOT_FOUND, NONE, true, false, "new", "(none)", NONE},
        {"but not for an append", APPEND, NOT_FOUND, NONE, true, false, "old", "(none)", NOT_FOUND},
        {"the next match serves both", WRITE, NOT_FOUND, NONE, true, true, "old", "new", NONE},
        {"a failure further down is passed over", APPEND, NONE, IO, false, true, "new", "old", NONE},
        {"the name is nowhere", READ_WRITE, NONE, NONE, false, false, "new", "(none)", NONE},
    };
    for (const InPlaceRow& row : rows) {
        SCOPED_TRACE(row.label);
        MemorySource* const second = mount_memory("/second/");
        MemorySource* const first = mount_memory("/first/");
        if (row.first_holds) first->add("x.txt", "old");
        if (row.second_holds) second->add("x.txt", "old");
        first->write_failure = row.first_fails;
        second->write_failure = row.second_fails;
        EXPECT_EQ(save("x.txt", "new", row.mode), row.code == NONE);
        EXPECT_EQ(fs::last_error().code, row.code) << "what failed on the way to a success is forgotten";
        if (row.code != NONE) EXPECT_TRUE(first->made.empty());
        EXPECT_EQ(first->content("x.txt"), row.first);
        EXPECT_EQ(second->content("x.txt"), row.second);
        test::unmount_all();
        fs::clear_error();
    }
}

TEST_F(Open, ASaveIsReadBackByTheSameNameOrRefused) {
    MemorySource* const source = mount_memory("/a/");
    source->matches_by_end = true;
    source->add("profiles/save.dat", "old");
    EXPECT_TRUE(save("save.dat", "new"));
    EXPECT_EQ(source->content("profiles/save.dat"), "new");
    for (const auto failure : {EFSError::NOT_FOUND, EFSError::READ_ONLY}) {
        source->write_failure = failure;
        EXPECT_FALSE(save("save.dat", "lost"));
        EXPECT_EQ(fs::last_error().code, failure);
    }
    EXPECT_TRUE(source->made.empty());
    source->write_failure = EFSError::NONE;
    source->is_silent = true;  // fails without a reason; reading would find the file
    EXPECT_FALSE(save("save.dat", "lost", EFSMode::APPEND));
    EXPECT_EQ(fs::last_error().code, EFSError::ACCESS_DENIED);
    EXPECT_EQ(source->content("profiles/save.dat"), "new");
}

TEST_F(Open, AWholeNameIsNeverTakenByItsEnd) {
    MemorySource* const source = mount_memory("/a/");
    source->matches_by_end = true;
    source->add("profiles/save.dat", "kept");
    EXPECT_TRUE(fs::exists("save.dat"));
    EXPECT_FALSE(fs::exists("save.dat", Flags::WHOLE_NAME));
    EXPECT_TRUE(fs::exists("profiles/save.dat", Flags::WHOLE_NAME));
    EXPECT_EQ(fs::open("save.dat", EFSMode::READ, Flags::WHOLE_NAME), nullptr);
    EXPECT_TRUE(save("save.dat", "new", EFSMode::WRITE, Flags::WHOLE_NAME));
    EXPECT_EQ(source->content("profiles/save.dat"), "kept");
    EXPECT_EQ(source->content("save.dat"), "new");
}

TEST_F(Open, ALongPathIsLookedUpLikeAnyOther) {
    const std::string longest(70000, 'n');
    MemorySource* const source = mount_memory("/a/");
    source->add(longest, "found");
    EXPECT_EQ(load(longest.c_str()), "found");
    EXPECT_EQ(load((longest + "x").c_str()), "(none)");
    EXPECT_FALSE(fs::native_does_file_exist(longest.c_str()));
}

TEST_F(Open, RecordsWhatWasOpenedForReadingOnceAndInOrder) {
    MemorySource* const source = mount_memory("/a/");
    for (const char* name : {"x.txt", "dir/y.txt", "z.txt"}) source->add(name, "");
    ztl::vector<fs::string> names;
    load("x.txt");
    fs::record_access(true);
    for (const char* path : {"DIR/y.txt", "missing.txt", "x.txt", "dir\\Y.txt"}) load(path);
    save("z.txt", "");
    fs::record_access(false);
    load("z.txt");
    fs::get_access_record(names);
    EXPECT_THAT(names, ElementsAre("dir/y.txt", "x.txt"));
    fs::record_access(true);
    fs::record_access(false);
    fs::get_access_record(names);
    EXPECT_TRUE(names.empty());
}

TEST_F(Open, QuestionsAskTheFirstHolderAndNativeOnesTheDisk) {
    mount_memory("/b/")->add("dir/x.txt", "");
    mount_memory("/a/")->add("dir/x.txt", "");
    EXPECT_TRUE(fs::exists("Dir\\X.txt") && fs::does_file_exist("dir/x.txt"));
    EXPECT_EQ(fs::get_source_name("dir/x.txt"), "/a/");
    EXPECT_EQ(fs::full_path("dir/x.txt"), "/a/dir/x.txt");
    EXPECT_EQ(fs::root_path("dir/x.txt"), "dir/x.txt");
    for (const char* missing : {"dir/y.txt", "", static_cast<const char*>(nullptr)}) {
        EXPECT_FALSE(fs::exists(missing) || fs::does_file_exist(missing) || fs::does_dir_exist(missing));
        EXPECT_EQ(fs::get_source_name(missing) + fs::full_path(missing) + fs::root_path(missing), "");
        fs::precache_file(missing);
    }
    std::ofstream("native.txt") << "x";
    EXPECT_TRUE(fs::does_file_exist("native.txt") && fs::native_does_file_exist("native.txt"));
    EXPECT_FALSE(fs::exists("native.txt") || fs::does_dir_exist("native.txt") || fs::native_does_file_exist("."));
    EXPECT_TRUE(fs::does_dir_exist("."));
}

}  // namespace

#include "tests/access/kit.h"

namespace {

using Flags = FFSOpenFlags;
using enum EFSMode::TYPE;

class Open : public OverMemory {};

TEST_F(Open, ReadsFromTheFirstSourceThatCanOpenTheName) {
    MemorySource* const second = mount_memory("/second/");
    MemorySource* const first = mount_memory("/first/");
    second->add("dir/x.txt", "second");
    first->add("dir/x.txt", "first");
    EXPECT_EQ(load("DIR\\.\\X.txt"), "first");
    first->refuses_to_open = true;  // holding a name is not enough
    EXPECT_EQ(load("dir/x.txt"), "second");
    second->refuses_to_open = true;
    EXPECT_EQ(why(fs::open("dir/x.txt", READ)), NOT_FOUND);
}

TEST_F(Open, WritesWhereTheNameIsAndElseCreatesInTheFirstSource) {
    MemorySource* const second = mount_memory("/second/");
    MemorySource* const first = mount_memory("/first/");
    second->add("old.txt", "old");
    EXPECT_TRUE(save("Old.TXT", "new") && save("old.txt", "er", APPEND) && save("old.txt", "N", READ_WRITE));
    EXPECT_EQ(second->content("old.txt"), "Newer");
    EXPECT_TRUE(first->made.empty());
    EXPECT_TRUE(save("Sub\\Made.txt", "1") && save("Sub/Appended.txt", "2", APPEND) &&
                save("Sub/Both.txt", "3", READ_WRITE));
    EXPECT_THAT(first->made, ElementsAre("create_write Sub/Made.txt", "create_write Sub/Appended.txt",
                                         "create_read_write Sub/Both.txt"));
    EXPECT_EQ(first->content("sub/appended.txt"), "2");
    EXPECT_NE(fs::search_dir("sub"), nullptr);  // the directory joined the index, the file did not
    EXPECT_EQ(fs::search_dir("sub/made.txt"), nullptr);
    first->open_flags.clear();
    for (const auto mode : {APPEND, READ_WRITE, static_cast<EFSMode::TYPE>(~0u)})
        EXPECT_EQ(why(fs::open_file("sub/made.txt", mode, Flags::GZIP_LEVEL1)), INVALID_ARGUMENT) << mode;
    EXPECT_TRUE(first->open_flags.empty()) << "nobody is asked for what mode and flags exclude";
}

TEST_F(Open, BehindASourceThatHoldsTheNameAndFailsNothingIsWritten) {
    struct Row {
        const char* label;
        EFSMode::TYPE mode;
        EFSError::TYPE first_fails, second_fails;  // NONE: opens; others: holds the name, and fails so
        bool first_holds, second_holds;
        const char *first, *second;  // what they hold afterwards
        EFSError::TYPE code;         // NONE: the open succeeded
        enum { WRITABLE, UNWRITABLE, PROTECTED } first_is = WRITABLE;
    };
    const Row rows[] = {
        {"a failure of the creating source stands", APPEND, IO, NONE, true, false, "old", "(none)", IO},
        {"for every mode", READ_WRITE, IN_USE, NONE, true, false, "old", "(none)", IN_USE},
        {"and does not send the bytes elsewhere", WRITE, ACCESS_DENIED, NONE, true, true, "old", "old", ACCESS_DENIED},
        {"what the disk has lost is made anew", WRITE, NOT_FOUND, NONE, true, false, "new", "(none)", NONE},
        {"but not for an append", APPEND, NOT_FOUND, NONE, true, false, "old", "(none)", NOT_FOUND},
        {"the next match serves both", WRITE, NOT_FOUND, NONE, true, true, "old", "new", NONE},
        {"a failure further down is passed over", APPEND, NONE, IO, false, true, "new", "old", NONE},
        {"the name is nowhere", READ_WRITE, NONE, NONE, false, false, "new", "(none)", NONE},
        {"shielded", WRITE, NONE, NONE, true, true, "old", "old", ACCESS_DENIED, Row::PROTECTED},
        {"in every mode", APPEND, NONE, NONE, true, true, "old", "old", ACCESS_DENIED, Row::PROTECTED},
        {"not writable alone is passed over", WRITE, NONE, NONE, true, true, "old", "new", NONE, Row::UNWRITABLE},
        {"the first creates, or nobody", WRITE, NONE, NONE, false, false, "(none)", "(none)", READ_ONLY,
         Row::UNWRITABLE},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        MemorySource* const second = mount_memory("/second/");
        MemorySource* const first = mount_memory("/first/");
        if (row.first_holds) first->add("x.txt", "old");
        if (row.second_holds) second->add("x.txt", "old");
        first->write_failure = row.first_fails;
        second->write_failure = row.second_fails;
        first->is_writable = row.first_is == Row::WRITABLE;
        first->is_shielding = row.first_is == Row::PROTECTED;
        const bool is_saved = save("x.txt", "new", row.mode);
        EXPECT_EQ(fs::last_error().code, row.code) << "what failed on the way to a success is forgotten";
        EXPECT_EQ(why(is_saved), row.code);
        if (row.code != NONE) EXPECT_TRUE(first->made.empty());
        EXPECT_EQ(first->content("x.txt"), row.first);
        EXPECT_EQ(second->content("x.txt"), row.second);
        test::unmount_all();
    }
}

TEST_F(Open, ASaveIsReadBackByTheSameNameOrRefused) {
    MemorySource* const source = mount_memory("/a/");
    source->matches_by_end = true;
    source->add("profiles/save.dat", "old");
    EXPECT_TRUE(save("save.dat", "new"));
    for (const auto failure : {NOT_FOUND, READ_ONLY}) {
        source->write_failure = failure;
        EXPECT_EQ(why(save("save.dat", "lost")), failure);
    }
    EXPECT_TRUE(source->made.empty());
    source->write_failure = NONE;
    const fs::path held("save.dat", true);
    source->set_read_only(held, true);  // fails without a reason; reading would find the file
    EXPECT_EQ(why(save("save.dat", "lost", APPEND)), ACCESS_DENIED);
    source->set_read_only(held, false);
    EXPECT_TRUE(save("save.dat", "whole", WRITE, Flags::WHOLE_NAME));
    EXPECT_EQ(source->content("profiles/save.dat") + source->content("save.dat"), "newwhole");
}

TEST_F(Open, RecordsWhatWasOpenedForReadingOnceAndInOrder) {
    MemorySource* const source = mount_memory("/a/");
    for (const char* name : {"x.txt", "dir/y.txt", "z.txt"}) source->add(name, "");
    load("x.txt");
    fs::record_access(true);
    for (const char* path : {"DIR/y.txt", "missing.txt", "x.txt", "dir\\Y.txt"}) load(path);
    save("z.txt", "");
    fs::record_access(false);
    load("z.txt");
    ztl::vector<fs::string> names;
    fs::get_access_record(names);
    EXPECT_THAT(names, ElementsAre("dir/y.txt", "x.txt"));
}

TEST_F(Open, QuestionsAskTheFirstHolderAndNativeOnesTheDisk) {
    for (const char* mount : {"/b/", "/a/"}) mount_memory(mount)->add("dir/x.txt", "");
    EXPECT_TRUE(fs::exists("Dir\\X.txt") && fs::does_file_exist("dir/x.txt"));
    EXPECT_EQ(fs::get_source_name("dir/x.txt") + fs::full_path("dir/x.txt"), "/a//a/dir/x.txt");
    for (const char* missing : {"dir/y.txt", "", static_cast<const char*>(nullptr)}) {
        EXPECT_FALSE(fs::exists(missing) || fs::does_file_exist(missing) || fs::does_dir_exist(missing));
        EXPECT_EQ(fs::get_source_name(missing) + fs::full_path(missing) + fs::root_path(missing), "");
        fs::precache_file(missing);
    }
    write_file("native.txt", "x");
    EXPECT_TRUE(fs::does_file_exist("native.txt") && fs::native_does_file_exist("native.txt"));
    EXPECT_FALSE(fs::exists("native.txt") || fs::does_dir_exist("native.txt") || fs::native_does_file_exist("."));
    EXPECT_TRUE(fs::does_dir_exist("."));
}

}  // namespace

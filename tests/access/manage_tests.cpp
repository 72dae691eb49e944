#include <engine/filesystem/access.h>
#include <engine/filesystem/log.h>
#include <engine/filesystem/registry.h>

#include <gmock/gmock.h>

#include <string>

#include "tests/support/memory_source.h"

namespace {

using test::MemorySource;
using test::mount_memory;
using testing::ElementsAre;

/// What changes the file or directory of a name, and whether it says that it did.
const struct {
    const char* label;
    bool (*change)(const char* name);
} changes[] = {
    {"remove", [](const char* name) { return fs::rem_file(name); }},
    {"rename", [](const char* name) { return fs::rename(name, "other.txt"); }},
    {"copy", [](const char* name) { return fs::copy(name, "other.txt", 0); }},
    {"copy a directory", [](const char* name) { return fs::copy_dir(name, "other"); }},
    {"set the time", [](const char* name) { return fs::set_write_time(name, 1); }},
    {"make read-only", [](const char* name) { return fs::read_only_set(name); }},
    {"make writable", [](const char* name) { return fs::read_only_remove(name); }},
    {"back up", [](const char* name) { return fs::create_backup_copy(name), false; }},
    {"remove a directory", [](const char* name) { return fs::rem_dir(name), false; }},
};

/// What makes a file or directory of a name, out of x.txt or the directory d.
const struct {
    const char* label;
    bool (*make)(const char* name);
} makers[] = {
    {"rename", [](const char* name) { return fs::rename("x.txt", name); }},
    {"copy", [](const char* name) { return fs::copy("x.txt", name, 0); }},
    {"copy a directory", [](const char* name) { return fs::copy_dir("d", name); }},
    {"make a directory", [](const char* name) { return fs::mkdir(name); }},
};

class Manage : public testing::Test {
protected:
    void SetUp() override {
        second_ = mount_memory("/second/");
        first_ = mount_memory("/first/");
        fs::clear_error();
    }
    void TearDown() override { test::unmount_all(); }

    MemorySource* first_ = nullptr;
    MemorySource* second_ = nullptr;
};

TEST_F(Manage, CopiesInPiecesOfAnySize) {
    const std::string large(100000, 'q');
    second_->add("from.txt", large);
    for (const std::uint32_t size : {0u, 1000u, 32768u, 1u << 30}) {
        EXPECT_TRUE(fs::copy("FROM.txt", "To/Copy.txt", size)) << size;
        EXPECT_EQ(first_->content("to/copy.txt"), large) << size;
    }
    EXPECT_EQ(first_->made[0], "create_write To/Copy.txt");
    second_->add("empty.txt", "");
    EXPECT_TRUE(fs::copy("empty.txt", "to/copy.txt", 0));
    EXPECT_EQ(first_->content("to/copy.txt"), "");
}

TEST_F(Manage, NamesThatAreNoneChangeNothing) {
    const char* const held[] = {"x.txt", "d/y.txt", "profiles/save.dat", "profiles/save.dat.bak"};
    for (const char* name : held) first_->add(name, name);
    first_->matches_by_end = true;
    for (const char* name : {"missing", "save.dat"}) {
        for (const auto& [label, change] : changes) {
            fs::clear_error();
            EXPECT_FALSE(change(name)) << label << ' ' << name;
            EXPECT_EQ(fs::last_error().code, EFSError::NOT_FOUND) << label << ' ' << name;
        }
    }
    for (const char* name : {"", ".", "/", "a/..", "..", "../x", static_cast<const char*>(nullptr)}) {
        SCOPED_TRACE(testing::PrintToString(name));
        for (const auto& [label, change] : changes) EXPECT_FALSE(change(name)) << label;
        for (const auto& [label, make] : makers) EXPECT_FALSE(make(name)) << label;
    }
    for (const char* name : held) EXPECT_EQ(first_->content(name), name);
    EXPECT_TRUE(first_->made.empty() && second_->made.empty());
    EXPECT_EQ(fs::write_time("save.dat"), 0) << "questions go by the end";
    // Beside files of the same names elsewhere, the file of just this name is changed.
    first_->add("save.dat", "1");
    fs::create_backup_copy("save.dat");
    EXPECT_EQ(first_->content("save.dat.bak"), "1");
    EXPECT_TRUE(fs::copy("save.dat.bak", "save.dat", 0));
    EXPECT_EQ(first_->content("save.dat"), "1");
    EXPECT_TRUE(fs::rem_file("save.dat"));
    for (const char* name : held) EXPECT_EQ(first_->content(name), name);
}

TEST_F(Manage, AFailedCopySaysWhichFileItWas) {
    second_->add("from.txt", "text");
    static std::string logged;
    _CLFilterSetMode(CLFilterMode::ALL_CONSOLE);
    LogSetPrintCallback([](Log::ELevel::TYPE, const char*, const char* text) { logged += text; });
    EXPECT_FALSE(fs::copy("missing.txt", "to.txt", 0) || fs::copy("from.txt", "../up.txt", 0));
    LogSetPrintCallback(nullptr);
    _CLFilterSetMode(CLFilterMode::NORMAL);
    EXPECT_THAT(logged, testing::HasSubstr("ERROR [fs::copy] failed to open source file missing.txt -> to.txt"));
    EXPECT_THAT(logged, testing::HasSubstr("ERROR [fs::copy] failed to open destination file from.txt -> ../up.txt"));
}

TEST_F(Manage, AFileCopiedOntoItselfStaysWhole) {
    second_->add("dir/x.txt", "precious");
    EXPECT_FALSE(fs::copy("dir/x.txt", "DIR\\X.txt", 0));
    EXPECT_EQ(second_->content("dir/x.txt"), "precious");
    EXPECT_TRUE(first_->made.empty());
    second_->is_writable = false;  // out of a source that is only read it may be copied under its own name
    EXPECT_TRUE(fs::copy("dir/x.txt", "dir/x.txt", 0));
    EXPECT_EQ(first_->content("dir/x.txt"), "precious");
}

TEST_F(Manage, CopiesADirectoryWithWhatIsBelow) {
    second_->add("d/a.txt", "1");
    second_->add("d/sub/b.txt", "2");
    second_->add("dx/c.txt", "3");
    EXPECT_TRUE(fs::copy_dir("D/", "Out"));
    EXPECT_EQ(first_->content("out/a.txt"), "1");
    EXPECT_EQ(first_->content("out/sub/b.txt"), "2");
    EXPECT_EQ(first_->made.size(), 2u);
}

TEST_F(Manage, ComparesTimesWithinATolerance) {
    const struct {
        std::int64_t a;
        std::int64_t b;
        std::uint32_t ms;
        int answer;
    } rows[] = {
        {0, 10000, 1, 0},
        {0, 10001, 1, -1},
        {10001, 0, 1, 1},
        {5, 5, 0, 0},
        {INT64_MAX, INT64_MIN, 0xFFFFFFFF, 1},
        {INT64_MIN, INT64_MAX, 0xFFFFFFFF, -1},
    };
    for (const auto& row : rows) EXPECT_EQ(fs::compare_time(row.a, row.b, row.ms), row.answer) << row.a << ' ' << row.b;
}

TEST_F(Manage, MakesADirectoryInTheFirstSourceUnlessItIsIndexed) {
    auto* const indexed = new MemorySource("/indexed/", EFSSourceType::DIR, FFSAddSourceFlags::INDEX_NAMES);
    indexed->add("known/deep/x.txt", "");
    indexed->tree.set_name("data");
    fs::add_source(indexed, FFSAddSourceFlags::INDEX_NAMES | FFSAddSourceFlags::AFTER_SAME_TYPE);
    for (const char* known : {"data", "known", "Known\\Deep"}) EXPECT_TRUE(fs::mkdir(known)) << known;
    EXPECT_TRUE(first_->made.empty());
    EXPECT_TRUE(fs::mkdir("New/Dir"));
    EXPECT_THAT(first_->made, ElementsAre("mkdir New/Dir/"));
    first_->is_writable = false;
    EXPECT_FALSE(fs::mkdir("other"));
    EXPECT_EQ(fs::last_error().code, EFSError::READ_ONLY);
    EXPECT_EQ(first_->made.size(), 1u);
    test::unmount_all();
    EXPECT_FALSE(fs::mkdir("x"));
}

TEST_F(Manage, RemovesAFileFromItsFirstHolderAlone) {
    first_->add("x.txt", "1");
    second_->add("x.txt", "2");
    EXPECT_TRUE(fs::rem_file("X.txt"));
    EXPECT_EQ(first_->content("x.txt"), "(none)");
    EXPECT_EQ(second_->content("x.txt"), "2");
    second_->is_writable = false;
    EXPECT_FALSE(fs::rem_file("x.txt"));
    EXPECT_EQ(fs::last_error().code, EFSError::READ_ONLY);
    EXPECT_EQ(second_->content("x.txt"), "2");
}

TEST_F(Manage, RemovesADirectoryFromTheFirstWritableSourceThatHasIt) {
    second_->add("e/x.txt", "");
    for (const char* name : {"d/x.txt", "d/deep/x.txt", "kept/x.txt"}) EXPECT_TRUE(fs::save_text_file("", name));
    first_->rem_dir(fs::path("d/", true));
    second_->add("d/x.txt", "");
    const fs::idir* const kept = fs::search_dir("kept");
    ASSERT_NE(kept, nullptr);
    fs::rem_dir("D\\");
    EXPECT_EQ(second_->content("d/x.txt"), "(none)");
    EXPECT_EQ(fs::search_dir("d"), nullptr);
    EXPECT_EQ(fs::search_dir("kept"), kept);  // the index is changed where the directory was, and nowhere else
    EXPECT_STREQ(kept->name(), "kept");
    EXPECT_EQ(second_->content("e/x.txt"), "");
    second_->is_writable = false;
    fs::rem_dir("e");
    EXPECT_EQ(second_->content("e/x.txt"), "");
    EXPECT_EQ(fs::last_error().code, EFSError::NOT_FOUND);
}

TEST_F(Manage, RenamesWithinTheSourceThatHoldsTheFile) {
    second_->add("old.txt", "text");
    second_->add("taken.txt", "other");
    EXPECT_TRUE(fs::rename("OLD.txt", "Sub/New.txt"));
    EXPECT_EQ(second_->content("sub/new.txt"), "text");
    EXPECT_EQ(second_->content("old.txt"), "(none)");
    EXPECT_NE(fs::search_dir("sub"), nullptr);
    EXPECT_FALSE(fs::rename("sub/new.txt", "taken.txt"));
    EXPECT_EQ(fs::last_error().code, EFSError::ALREADY_EXISTS);
    EXPECT_TRUE(fs::rename("sub/new.txt", "SUB/NEW.TXT"));
    for (const char* name : {"a?b", "con", "dot.", "sub/", "a|b"}) {
        EXPECT_FALSE(fs::rename("sub/new.txt", name)) << name;
        EXPECT_EQ(fs::last_error().code, EFSError::INVALID_NAME) << name;
    }
    second_->file_capacity = 2;
    EXPECT_FALSE(fs::rename("sub/new.txt", "x.txt"));
    EXPECT_EQ(second_->content("sub/new.txt"), "text");
    EXPECT_EQ(second_->content("x.txt"), "(none)");
    second_->is_writable = false;
    EXPECT_FALSE(fs::rename("sub/new.txt", "y.txt"));
}

TEST_F(Manage, AttributesAreThoseOfTheFirstHolder) {
    second_->add("x.txt", "");
    second_->is_shielding = true;
    EXPECT_TRUE(fs::set_write_time("X.txt", 1234) && fs::is_protected("x.txt") && !fs::read_only("x.txt"));
    EXPECT_EQ(fs::write_time("x.txt"), 1234);
    EXPECT_TRUE(fs::read_only_set("x.txt") && fs::read_only("x.txt"));
    EXPECT_TRUE(fs::read_only_remove("x.txt") && !fs::read_only("x.txt"));
    for (const char* missing : {"y.txt", "", static_cast<const char*>(nullptr)}) {
        EXPECT_EQ(fs::write_time(missing), -1);
        EXPECT_FALSE(fs::set_write_time(missing, 1) || fs::is_protected(missing) || fs::read_only(missing));
        EXPECT_FALSE(fs::read_only_set(missing) || fs::read_only_remove(missing));
        EXPECT_EQ(fs::last_error().code, EFSError::NOT_FOUND);
    }
}

TEST_F(Manage, WritesATimeAsItsCalendarForm) {
    const std::pair<std::int64_t, const char*> rows[] = {{0, "1601-01-01 00:00:00"},
                                                         {133536384000000000, "2024-02-29 00:00:00"},
                                                         {133536384000000000 + 864000000000 - 1, "2024-02-29 23:59:59"},
                                                         {-1, ""},
                                                         {INT64_MIN, ""},
                                                         {INT64_MAX, ""}};
    for (const auto& [time, text] : rows) EXPECT_EQ(fs::get_time_as_str(time), text);
}

TEST_F(Manage, ANameIsInstalledUnlessKnownAsMissing) {
    first_->add("x.txt", "");
    second_->add("x.txt", "");
    EXPECT_TRUE(fs::is_installed("unknown.txt"));
    EXPECT_TRUE(fs::is_installed("X.txt"));
    fs::mark_installed("x.TXT", false);
    EXPECT_FALSE(fs::is_installed("x.txt"));
    second_->mark_installed(fs::path("x.txt", true), true);
    EXPECT_TRUE(fs::is_installed("x.txt"));  // a later source has it
    fs::mark_installed(false);
    EXPECT_FALSE(fs::is_installed("x.txt"));
    fs::mark_installed(true);
    EXPECT_TRUE(fs::is_installed("x.txt"));
    EXPECT_TRUE(fs::is_installed(nullptr));
    fs::mark_installed(nullptr, false);
}

TEST_F(Manage, ChecksumsAWholeFile) {
    second_->add("x.txt", "123456789");
    second_->add("empty.txt", "");
    std::uint32_t crc = 7;
    EXPECT_TRUE(fs::calc_file_crc("x.txt", crc));
    EXPECT_EQ(crc, 0xCBF43926u);
    EXPECT_TRUE(fs::calc_file_crc("empty.txt", crc));
    EXPECT_EQ(crc, 0u);
    crc = 7;
    EXPECT_FALSE(fs::calc_file_crc("missing.txt", crc));
    EXPECT_EQ(crc, 0u);

    std::vector<std::uint64_t> steps;
    fs::CrcCalcArgs args;
    args.path = "x.txt";
    args.buffer_size = 4;
    args.user = &steps;
    args.progress = [](std::uint64_t done, std::uint64_t, void* user) {
        static_cast<std::vector<std::uint64_t>*>(user)->push_back(done);
        return true;
    };
    EXPECT_TRUE(fs::calc_file_crc(args) && args.crc == 0xCBF43926u && args.size == 9);
    EXPECT_THAT(steps, ElementsAre(4, 8, 9));
    args.progress = [](std::uint64_t, std::uint64_t, void*) { return false; };
    EXPECT_FALSE(fs::calc_file_crc(args) || args.size != 0);
    EXPECT_EQ(fs::last_error().code, EFSError::CANCELLED);
}

class Backup : public Manage {
protected:
    /// The file and its generations, "-" for one that is not there.
    std::string generations() const {
        std::string out;
        for (const char* name : {"x", "x.bak", "x.ba1", "x.ba2", "x.ba3"}) {
            const std::string held = first_->content(name);
            out += held == "(none)" ? "-" : held;
        }
        return out;
    }
};

TEST_F(Backup, MovesEveryGenerationOneStepBackAndLeavesAGapWhereItIs) {
    const char* const expected[] = {"-1---", "-21--", "-321-", "-4321", "-5432"};
    for (int i = 0; i < 5; ++i) {
        first_->add("x", std::to_string(i + 1));
        fs::create_backup_copy("X");
        EXPECT_EQ(generations(), expected[i]);
    }
    fs::rem_file("x.ba1");
    first_->add("x", "6");
    fs::create_backup_copy("x");
    EXPECT_EQ(generations(), "-6532");
}

TEST_F(Backup, TouchesNothingWithoutAFile) {
    first_->add("x.bak", "4");
    fs::create_backup_copy("x");
    EXPECT_EQ(generations(), "-4---");
    const std::string longest(257, 'n');
    first_->add(longest, "kept");
    fs::create_backup_copy(longest.c_str());
    EXPECT_EQ(first_->content(longest), "kept");
}

TEST_F(Backup, StopsBeforeItWouldLoseAGeneration) {
    const char* const names[] = {"x", "x.bak", "x.ba1", "x.ba2"};
    for (int i = 0; i < 4; ++i) first_->add(names[i], std::to_string(5 - i));
    first_->file_capacity = 0;  // the disk is full
    fs::create_backup_copy("x");
    EXPECT_EQ(generations(), "5432-");
    EXPECT_EQ(fs::last_error().code, EFSError::DISK_FULL);
    first_->file_capacity = 10;
    first_->refuses_to_remove = true;  // files can be copied, not moved: what is left stands one step back as well
    fs::create_backup_copy("x");
    EXPECT_EQ(generations(), "55432");
}

}  // namespace

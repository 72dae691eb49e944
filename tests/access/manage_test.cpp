#include <sstream>

#include "tests/access/kit.h"

namespace {

/// What changes the file or directory of a name, and whether it says that it did.
const std::pair<const char*, bool (*)(const char* name)> changes[] = {
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
const std::pair<const char*, bool (*)(const char* name)> makers[] = {
    {"rename", [](const char* name) { return fs::rename("x.txt", name); }},
    {"copy", [](const char* name) { return fs::copy("x.txt", name, 0); }},
    {"copy a directory", [](const char* name) { return fs::copy_dir("d", name); }},
    {"make a directory", [](const char* name) { return fs::mkdir(name); }},
    {"save", [](const char* name) { return save(name, "x"); }},
};

/// Gives a source files that are told as "name=text name=text".
void add_files(MemorySource& source, const char* files) {
    std::istringstream words(files);
    for (std::string word; words >> word;) source.add(word.substr(0, word.find('=')), word.substr(word.find('=') + 1));
}
/// Its files, told so.
std::string files_of(MemorySource& source) {
    std::string files;  // they are listed from the last name to the first
    for (const std::string& name : take_names(source.get_file_list(nullptr, nullptr, true)))
        files.insert(0, name + '=' + source.content(name) + (files.empty() ? "" : " "));
    return files;
}

class Manage : public OverMemory {
protected:
    void SetUp() override {
        OverMemory::SetUp();
        second_ = mount_memory("/second/");
        first_ = mount_memory("/first/");
    }

    MemorySource* first_ = nullptr;
    MemorySource* second_ = nullptr;
};

bool copy_x() { return fs::copy("d/x", "D\\X", 0); }
bool copy_in_pieces() { return fs::copy("x", "Y", 2) && fs::copy("none", "z", 1u << 30); }
bool copy_d() { return fs::copy_dir("D/", "Out"); }
bool remove_d() { return fs::rem_dir("D\\"), fs::last_error().code == NONE; }
bool remove_x() { return fs::rem_file("X"); }
bool rename_x() { return fs::rename("X", "Sub/New"); }
bool rename_case() { return fs::rename("x", "X"); }
bool back_up_x() { return fs::create_backup_copy("X"), fs::last_error().code == NONE; }

/// A call over two sources.
struct Row {
    const char* label;
    bool (*call)();
    EFSError::TYPE code;
    const char* first;
    const char* second;
    const char* first_after;
    const char* second_after;
    enum { NO_LIMIT, SECOND_IS_ONLY_READ, DISK_IS_FULL, CLOSING_FAILS, NOTHING_GOES } limit = NO_LIMIT;
};

const Row rows[] = {
    {"of the first holder alone", remove_x, NONE, "x=1", "x=2", "", "x=2"},
    {"only read", remove_x, READ_ONLY, "", "x=2", "", "x=2", Row::SECOND_IS_ONLY_READ},
    {"not onto itself", copy_x, IN_USE, "", "d/x=1", "", "d/x=1"},
    {"to the same name elsewhere", copy_x, NONE, "", "d/x=1", "d/x=1", "d/x=1", Row::SECOND_IS_ONLY_READ},
    {"in pieces of any size", copy_in_pieces, NONE, "", "x=12345 none=", "y=12345 z=", "none= x=12345"},
    {"and what is below", copy_d, NONE, "", "d/a=1 d/s/b=2 dx/c=3", "out/a=1 out/s/b=2", "d/a=1 d/s/b=2 dx/c=3"},
    {"the first that has it", remove_d, NONE, "kept/x=1", "d/x=2 d/s/y=3 dx/z=4", "kept/x=1", "dx/z=4"},
    {"nobody who may", remove_d, NOT_FOUND, "", "d/x=1", "", "d/x=1", Row::SECOND_IS_ONLY_READ},
    {"within its source", rename_x, NONE, "", "x=1", "", "sub/new=1"},
    {"to a name that is taken", rename_x, ALREADY_EXISTS, "sub/new=1", "x=2", "sub/new=1", "x=2"},
    {"in case alone", rename_case, NONE, "", "x=1", "", "x=1"},
    {"a full disk", rename_x, DISK_FULL, "", "x=1", "", "x=1", Row::DISK_IS_FULL},
    {"lost at closing", rename_x, DISK_FULL, "", "x=1", "", "x=1", Row::CLOSING_FAILS},
    {"a copy is told of", copy_d, DISK_FULL, "d/x=1", "", "d/x=1 out/x=1", "", Row::CLOSING_FAILS},
    {"only read", rename_x, READ_ONLY, "", "x=1", "", "x=1", Row::SECOND_IS_ONLY_READ},
    {"the first backup", back_up_x, NONE, "x=1", "", "x.bak=1", ""},
    {"one step back", back_up_x, NONE, "x=5 x.bak=4 x.ba1=3 x.ba2=2 x.ba3=1", "", "x.ba1=4 x.ba2=3 x.ba3=2 x.bak=5",
     ""},
    {"a gap stays", back_up_x, NONE, "x=6 x.bak=5 x.ba2=3 x.ba3=2", "", "x.ba1=5 x.ba2=3 x.ba3=2 x.bak=6", ""},
    {"no file, no backup", back_up_x, NOT_FOUND, "x.bak=4", "", "x.bak=4", ""},
    {"no room for the oldest", back_up_x, DISK_FULL, "x=5 x.ba1=3 x.bak=4", "", "x=5 x.ba1=3 x.bak=4", "",
     Row::DISK_IS_FULL},
    {"copied, not moved", back_up_x, ACCESS_DENIED, "x=5 x.ba1=3 x.bak=4", "", "x=5 x.ba1=4 x.ba2=3 x.bak=5", "",
     Row::NOTHING_GOES},
};

TEST_F(Manage, ChangesWhatIsNamedOrNothing) {
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        test::unmount_all();
        SetUp();
        add_files(*first_, row.first);
        add_files(*second_, row.second);
        second_->is_writable = row.limit != Row::SECOND_IS_ONLY_READ;
        if (row.limit == Row::DISK_IS_FULL) first_->capacity = second_->capacity = 0;
        first_->loses_at_close = second_->loses_at_close = row.limit == Row::CLOSING_FAILS;
        first_->refuses_to_remove = row.limit == Row::NOTHING_GOES;
        EXPECT_EQ(why(row.call()), row.code);
        EXPECT_EQ(files_of(*first_), row.first_after);
        EXPECT_EQ(files_of(*second_), row.second_after);
        EXPECT_EQ(fs::search_dir("sub") != nullptr, row.code == NONE && row.call == rename_x) << "in the index";
    }
}

TEST_F(Manage, NamesThatAreNoneChangeNothing) {
    const char* const held[] = {"x.txt", "d/y.txt", "profiles/save.dat", "profiles/save.dat.bak"};
    for (const char* name : held) first_->add(name, name);
    first_->matches_by_end = true;
    for (const char* name : {"missing", "save.dat"}) {
        for (const auto& [label, change] : changes) EXPECT_EQ(why(change(name)), NOT_FOUND) << label << ' ' << name;
    }
    for (const char* name : {"", ".", "/", "a/..", "..", "../x", static_cast<const char*>(nullptr)}) {
        SCOPED_TRACE(testing::PrintToString(name));
        for (const auto& [label, change] : changes) EXPECT_FALSE(change(name)) << label;
        for (const auto& [label, make] : makers) EXPECT_FALSE(make(name)) << label;
        EXPECT_EQ(load(name), "(none)");
    }
    fs::clear_error();
    for (const char* name : {"a?b", "con", "dot.", "sub/", "a|b"})
        EXPECT_EQ(why(fs::rename("x.txt", name)), INVALID_NAME) << name;
    const std::string longest(257, 'n');
    first_->add(longest, "kept");
    fs::create_backup_copy(longest.c_str());
    EXPECT_EQ(why(false), INVALID_NAME);
    EXPECT_EQ(first_->content(longest), "kept");
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

TEST(Times, AreComparedWithinAToleranceAndWrittenAsTheirCalendarForm) {
    const std::tuple<std::int64_t, std::int64_t, std::uint32_t, int> pairs[] = {
        {0, 10000, 1, 0}, {0, 10001, 1, -1}, {10001, 0, 1, 1}, {INT64_MAX, INT64_MIN, 0xFFFFFFFF, 1}};
    for (const auto& [a, b, ms, answer] : pairs) EXPECT_EQ(fs::compare_time(a, b, ms), answer) << a << ' ' << b;
    const std::int64_t leap_day = 133536384000000000;
    const std::pair<std::int64_t, const char*> times[] = {
        {0, "1601-01-01 00:00:00"}, {leap_day + 864000000000 - 1, "2024-02-29 23:59:59"}, {-1, ""}, {INT64_MAX, ""}};
    for (const auto& [time, text] : times) EXPECT_EQ(fs::get_time_as_str(time), text);
}

TEST_F(Manage, MakesADirectoryInTheFirstSourceUnlessItIsIndexed) {
    auto* const indexed = new MemorySource("/indexed/", EFSSourceType::DIR, FFSAddSourceFlags::INDEX_NAMES);
    indexed->add("known/deep/x.txt", "");
    indexed->tree.set_name("data");
    fs::add_source(indexed, FFSAddSourceFlags::INDEX_NAMES | FFSAddSourceFlags::AFTER_SAME_TYPE);
    for (const char* name : {"data", "known", "Known\\Deep", "New/Dir"}) EXPECT_TRUE(fs::mkdir(name)) << name;
    first_->is_writable = false;
    EXPECT_EQ(why(fs::mkdir("other")), READ_ONLY);
    EXPECT_THAT(first_->made, ElementsAre("mkdir New/Dir/"));
}

TEST_F(Manage, AttributesAreThoseOfTheFirstHolder) {
    second_->add("x.txt", "");
    second_->is_shielding = true;
    EXPECT_TRUE(fs::set_write_time("X.txt", 1234) && fs::is_protected("x.txt") && !fs::read_only("x.txt"));
    EXPECT_EQ(fs::write_time("x.txt"), 1234);
    EXPECT_TRUE(fs::read_only_set("x.txt") && fs::read_only("x.txt"));
    EXPECT_TRUE(fs::read_only_remove("x.txt") && !fs::read_only("x.txt"));
    for (const char* missing : {"y.txt", static_cast<const char*>(nullptr)}) {
        EXPECT_EQ(fs::write_time(missing), -1);
        EXPECT_EQ(why(fs::is_protected(missing) || fs::read_only(missing)), NOT_FOUND);
    }
}

TEST_F(Manage, ChecksumsAWholeFile) {
    second_->add("x.txt", "123456789");
    std::uint32_t crc = 7;
    EXPECT_EQ(why(fs::calc_file_crc("missing.txt", crc)), NOT_FOUND);
    EXPECT_EQ(crc, 0u);
    std::string steps;
    fs::CrcCalcArgs args;
    args.path = "x.txt";
    args.buffer_size = 4;
    args.user = &steps;
    args.progress = [](std::uint64_t done, std::uint64_t, void* user) {
        *static_cast<std::string*>(user) += std::to_string(done) + " ";
        return done < 9;
    };
    EXPECT_EQ(why(fs::calc_file_crc(args)), CANCELLED);
    EXPECT_EQ(steps, "4 8 9 ");
    EXPECT_EQ(args.size, 0u);
    args.progress = nullptr;
    EXPECT_TRUE(fs::calc_file_crc(args) && args.crc == 0xCBF43926u && args.size == 9);
}

}  // namespace

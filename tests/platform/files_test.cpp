#include "engine/platform/files.h"

#include "tests/platform/disk.h"

namespace {

using namespace platform;
using testing::ElementsAre;
using testing::UnorderedElementsAre;

constexpr OpenOptions for_reading{};
constexpr OpenOptions for_writing{.access = Access::WRITE};
constexpr OpenOptions for_both{.access = Access::READ_WRITE};
constexpr OpenOptions for_creating{.access = Access::WRITE, .disposition = Disposition::CREATE_ALWAYS};
constexpr OpenOptions alone{.sharing = Sharing::NONE};

class Files : public disk::DiskTest {};

/// Failure::NONE when it opens.
Failure try_open(const char* path, const OpenOptions& options) {
    return File::open(path, options).valid() ? Failure::NONE : last_error().failure;
}
Failure outcome(bool done) { return done ? Failure::NONE : last_error().failure; }

TEST_F(Files, OpenAsTheirDispositionSays) {
    const struct {
        const char* label;
        Disposition disposition;
        bool exists;
        Failure expected;
        const char* content;
    } rows[] = {
        {"existing, there", Disposition::OPEN_EXISTING, true, Failure::NONE, "old"},
        {"existing, missing", Disposition::OPEN_EXISTING, false, Failure::NOT_FOUND, nullptr},
        {"always, there", Disposition::OPEN_ALWAYS, true, Failure::NONE, "old"},
        {"always, missing", Disposition::OPEN_ALWAYS, false, Failure::NONE, ""},
        {"create, there", Disposition::CREATE_ALWAYS, true, Failure::NONE, ""},
        {"create, missing", Disposition::CREATE_ALWAYS, false, Failure::NONE, ""},
        {"truncate, there", Disposition::TRUNCATE_EXISTING, true, Failure::NONE, ""},
        {"truncate, missing", Disposition::TRUNCATE_EXISTING, false, Failure::NOT_FOUND, nullptr},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.label);
        std::filesystem::remove("file");
        if (row.exists) disk::put("file", "old");
        EXPECT_EQ(try_open("file", {.access = Access::WRITE, .disposition = row.disposition}), row.expected);
        ASSERT_EQ(std::filesystem::exists("file"), row.content != nullptr);
        if (row.content == nullptr) continue;
        EXPECT_EQ(disk::get("file"), row.content);
    }
}

TEST_F(Files, RefuseWhatIsNoPathOfAFile) {
    std::filesystem::create_directory("folder");
    const std::string too_long = std::string(255, 'a') + "/bcde";
    ASSERT_EQ(too_long.size(), max_path_bytes + 1);
    const struct {
        const char* path;
        Failure expected;
    } rows[] = {
        {"", Failure::INVALID_NAME},
        {too_long.c_str(), Failure::PATH_TOO_LONG},
        {"missing/file", Failure::NOT_FOUND},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.path);
        EXPECT_EQ(try_open(row.path, for_reading), row.expected);
        EXPECT_EQ(try_open(row.path, for_creating), row.expected);
        EXPECT_FALSE(get_attributes(row.path).has_value());
        EXPECT_FALSE(remove_file(row.path));
        EXPECT_FALSE(rename_path("folder", row.path));
    }
    for (const OpenOptions& options : {for_reading, for_writing, for_creating}) {
        EXPECT_NE(try_open("folder", options), Failure::NONE);
        EXPECT_NE(try_open("FOLDER", options), Failure::NONE);
    }
    disk::put("file", "");
    EXPECT_NE(try_open("file/", for_reading), Failure::NONE);
    EXPECT_NE(try_open("FILE/", for_reading), Failure::NONE);
    EXPECT_FALSE(get_attributes("file/").has_value());
    EXPECT_TRUE(get_attributes("folder/").has_value());
}

TEST_F(Files, ShareAmongReadersOnly) {
    disk::put("file", "content");
    const struct {
        const char* label;
        OpenOptions first;
        OpenOptions second;
        Failure expected;
    } rows[] = {
        {"reader, reader", for_reading, for_reading, Failure::NONE},
        {"reader, writer", for_reading, for_writing, Failure::IN_USE},
        {"writer, reader", for_writing, for_reading, Failure::IN_USE},
        {"writer, writer", for_writing, for_writing, Failure::IN_USE},
        {"both, reader", for_both, for_reading, Failure::IN_USE},
        {"reader, create", for_reading, for_creating, Failure::IN_USE},
        {"alone, reader", alone, for_reading, Failure::IN_USE},
        {"reader, alone", for_reading, alone, Failure::IN_USE},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.label);
        const File first = File::open("file", row.first);
        ASSERT_TRUE(first.valid());
        EXPECT_EQ(try_open("FILE", row.second), row.expected);
        EXPECT_EQ(first.length(), 7u) << "a refused open must not touch the content";
    }
    EXPECT_EQ(try_open("file", for_writing), Failure::NONE) << "all were closed";
}

TEST_F(Files, AreHeldUntilTheLastReaderCloses) {
    disk::put("file", "");
    File first = File::open("file", for_reading);
    File second = File::open("file", for_reading);
    first.close();
    EXPECT_EQ(try_open("file", for_writing), Failure::IN_USE);
    File moved = std::move(second);
    EXPECT_EQ(try_open("file", for_writing), Failure::IN_USE);
    moved = File();
    EXPECT_EQ(try_open("file", for_writing), Failure::NONE);
}

TEST_F(Files, KeepTheirNameWhileOpen) {
    disk::put("file", "content");
    disk::put("other", "other");
    {
        const File open = File::open("file", for_reading);
        EXPECT_FALSE(remove_file("file"));
        EXPECT_FALSE(rename_path("file", "new"));
        EXPECT_FALSE(rename_path("file", "FILE"));
        EXPECT_EQ(outcome(rename_path("other", "file")), Failure::IN_USE);
        EXPECT_FALSE(replace_file("other", "file"));
        EXPECT_FALSE(set_write_time("file", 130000000000000000));
    }
    EXPECT_EQ(disk::get("file"), "content");
    EXPECT_EQ(disk::get("other"), "other");
    EXPECT_TRUE(rename_path("other", "file"));
    EXPECT_EQ(disk::get("file"), "other");
    EXPECT_TRUE(remove_file("file"));
}

TEST_F(Files, ObeyTheirReadOnlyAttributeWhoeverAsks) {
    disk::put("file", "content");
    disk::put("other", "other");
    ASSERT_TRUE(set_read_only("FILE", true));
    EXPECT_TRUE(get_attributes("file")->is_read_only);
    const auto before = get_attributes("file")->write_time;
    for (const OpenOptions& options : {for_writing, for_both, for_creating}) {
        EXPECT_NE(try_open("file", options), Failure::NONE);
    }
    EXPECT_FALSE(remove_file("file"));
    EXPECT_FALSE(rename_path("other", "file"));
    EXPECT_FALSE(replace_file("other", "file"));
    EXPECT_FALSE(set_write_time("file", 130000000000000000));
    EXPECT_FALSE(set_all_times("file", 130000000000000000));
    EXPECT_EQ(get_attributes("file")->write_time, before);
    EXPECT_EQ(disk::get("file"), "content");
    EXPECT_EQ(try_open("file", for_reading), Failure::NONE);
    EXPECT_TRUE(rename_path("file", "moved"));
    EXPECT_TRUE(set_read_only("moved", false));
    EXPECT_TRUE(remove_file("moved"));
    EXPECT_FALSE(set_read_only("moved", true));
}

TEST_F(Files, AreFoundUnderAnyCase) {
    std::filesystem::create_directories("Sub/Deep");
    disk::put("Sub/Deep/File.Txt", "content");
    for (const char* path :
         {"Sub/Deep/File.Txt", "sub/deep/file.txt", "SUB/DEEP/FILE.TXT", "sub/Deep/../deep/FILE.txt"}) {
        SCOPED_TRACE(path);
        EXPECT_EQ(try_open(path, for_reading), Failure::NONE);
        EXPECT_TRUE(get_attributes(path).has_value());
        EXPECT_EQ(get_attributes(path)->size, 7u);
    }
    EXPECT_EQ(try_open(path_to("SUB/deep/file.txt").c_str(), for_reading), Failure::NONE);
    EXPECT_TRUE(remove_file("SUB/DEEP/FILE.TXT"));
    EXPECT_TRUE(std::filesystem::is_empty("Sub/Deep"));
}

TEST_F(Files, AreCreatedInTheCallersCaseUnlessThere) {
    std::filesystem::create_directory("Sub");
    EXPECT_EQ(try_open("SUB/New.Txt", for_creating), Failure::NONE);
    EXPECT_EQ(try_open("sub/NEW.TXT", for_creating), Failure::NONE);
    EXPECT_EQ(try_open("sub/new.txt", {.access = Access::WRITE, .disposition = Disposition::OPEN_ALWAYS}),
              Failure::NONE);
    EXPECT_THAT(disk::names_in("."), ElementsAre("Sub"));
    EXPECT_THAT(disk::names_in("Sub"), ElementsAre("New.Txt"));
}

// What is remembered of a directory is carried on over our own changes; it must neither hide what others do in between
// nor keep what was renamed away.
TEST_F(Files, AreCreatedOnceInADirectoryThatChangesAllTheTime) {
    for (int i = 0; i < 200; ++i) {
        const std::string number = std::to_string(i);
        EXPECT_EQ(try_open(("own" + number).c_str(), for_creating), Failure::NONE);
        disk::put("Other" + number, "");
        EXPECT_EQ(try_open(("other" + number).c_str(), for_creating), Failure::NONE);
        EXPECT_EQ(try_open(("OWN" + number).c_str(), for_creating), Failure::NONE);
        EXPECT_TRUE(rename_path(("own" + number).c_str(), ("kept" + number).c_str()));
        EXPECT_EQ(try_open(("Own" + number).c_str(), for_reading), Failure::NOT_FOUND);
        EXPECT_EQ(try_open(("Own" + number).c_str(), for_creating), Failure::NONE);
        EXPECT_FALSE(create_directory(("OWN" + number).c_str()));
        EXPECT_TRUE(remove_file(("own" + number).c_str()));
        EXPECT_EQ(try_open(("KEPT" + number).c_str(), for_creating), Failure::NONE);
    }
    EXPECT_EQ(disk::names_in(".").size(), 400u) << "for each number one \"Other\" and one \"kept\"";
}

TEST_F(Files, ChangeNamesAndOnlyTheirCaseToo) {
    disk::put("one", "1");
    disk::put("Two", "2");
    std::filesystem::create_directory("Folder");
    disk::put("Folder/inner", "i");
    EXPECT_TRUE(rename_path("one", "ONE"));
    EXPECT_TRUE(rename_path("folder", "FOLDER"));
    EXPECT_TRUE(rename_path("folder/INNER", "Folder/Inner"));
    EXPECT_THAT(disk::names_in("."), UnorderedElementsAre("ONE", "Two", "FOLDER"));
    EXPECT_THAT(disk::names_in("FOLDER"), ElementsAre("Inner"));
    EXPECT_TRUE(rename_path("one", "two")) << "onto a file under another case";
    EXPECT_THAT(disk::names_in(".").size(), 2u);
    EXPECT_EQ(get_attributes("two")->size, 1u);
    EXPECT_TRUE(rename_path("TWO", "folder/moved"));
    EXPECT_EQ(disk::get("FOLDER/moved"), "1");
    EXPECT_TRUE(rename_path("folder/moved", "folder/moved")) << "onto itself";
    EXPECT_EQ(disk::get("FOLDER/moved"), "1");
}

TEST_F(Files, RefuseRenamingOntoDirectoriesAndIntoNothing) {
    disk::put("file", "f");
    std::filesystem::create_directory("empty");
    std::filesystem::create_directory("other");
    EXPECT_FALSE(rename_path("file", "empty"));
    EXPECT_FALSE(rename_path("empty", "other"));
    EXPECT_FALSE(rename_path("empty", "file"));
    EXPECT_FALSE(rename_path("missing", "new"));
    EXPECT_EQ(outcome(rename_path("file", "missing/new")), Failure::NOT_FOUND);
    EXPECT_FALSE(remove_file("empty"));
    EXPECT_EQ(outcome(remove_file("missing")), Failure::NOT_FOUND);
    EXPECT_THAT(disk::names_in("."), UnorderedElementsAre("file", "empty", "other"));
}

TEST_F(Files, AreReplacedInOneStep) {
    disk::put("target", "old content");
    disk::put("new", "new");
    EXPECT_TRUE(replace_file("NEW", "TARGET"));
    EXPECT_EQ(get_attributes("target")->size, 3u);
    EXPECT_FALSE(replace_file("new", "target")) << "it is gone";
    EXPECT_THAT(disk::names_in(".").size(), 1u);
    EXPECT_TRUE(replace_file("target", "fresh")) << "nothing to replace is no obstacle";
    EXPECT_EQ(disk::get("fresh"), "new");
}

TEST_F(Files, AreNotCreatedUnderNamesThatWindowsCannotHold) {
    disk::put("file", "");
    const char* const names[] = {"a<b", "a>b", "a|b", "a?b", "a*b",     "a\"b", "a\x01",  "a\x1f",  "a\x7f",
                                 "a.",  "a ",  "nul", "CON", "Aux.txt", "com1", "LPT9.x", "prn . ", "conIN$"};
    for (const char* name : names) {
        SCOPED_TRACE(name);
        EXPECT_FALSE(is_valid_name(name, std::string(name).size()));
        EXPECT_EQ(try_open(name, for_creating), Failure::INVALID_NAME);
        EXPECT_EQ(outcome(create_directory(name)), Failure::INVALID_NAME);
        EXPECT_EQ(outcome(rename_path("file", name)), Failure::INVALID_NAME);
    }
    for (const char* name : {"", ".", "..", "a/b", "a\\b", "a:b"}) {
        EXPECT_FALSE(is_valid_name(name, std::string(name).size())) << name;
    }
    EXPECT_FALSE(is_valid_name("a\0b", 3));
    EXPECT_FALSE(is_valid_name(std::string(256, 'a').c_str(), 256));
    for (const char* name :
         {"a", ".hidden", "a b", "com", "com0", "com10", "console", "nul_", "a..b", "\xC3\xA4.txt"}) {
        EXPECT_TRUE(is_valid_name(name, std::string(name).size())) << name;
    }
    EXPECT_THAT(disk::names_in("."), ElementsAre("file"));
}

TEST_F(Files, KeepTimesTo100Nanoseconds) {
    disk::put("file", "");
    // 1903, one tick before 1970, 2001, a time with all digits, 2038 and after.
    for (const std::int64_t time : {95617584000000000, 116444735999999999, 126227808000000000, 133000000001234567,
                                    137919572480000000, 140000000000000001}) {
        SCOPED_TRACE(time);
        ASSERT_TRUE(set_all_times("FILE", time));
        const auto all = get_attributes("file");
        EXPECT_EQ(all->write_time, time);
        EXPECT_EQ(all->access_time, time);
        ASSERT_TRUE(set_write_time("file", time + 20000000));
        EXPECT_EQ(get_attributes("file")->write_time, time + 20000000);
    }
    EXPECT_FALSE(set_write_time("missing", 133000000001234567));
    EXPECT_FALSE(set_write_time("file", -1));
    const std::int64_t before = get_attributes("file")->write_time;
    EXPECT_TRUE(set_write_time("file", 0) && set_all_times("file", 0));
    EXPECT_EQ(get_attributes("file")->write_time, before) << "0 is no time";
}

TEST_F(Files, FailOnOrder) {
    disk::put("file", "0123456789");
    std::filesystem::create_directory("folder");
    DirectoryListing listing;
    char buffer[8];
    const struct {
        FaultPoint point;
        const char* label;
        bool (*act)(File&, DirectoryListing&, char*);
    } rows[] = {
        {FaultPoint::OPEN, "open", [](File&, DirectoryListing&, char*) { return File::open("file", {}).valid(); }},
        {FaultPoint::READ, "read", [](File& f, DirectoryListing&, char* b) { return f.read(b, 1) == 1; }},
        {FaultPoint::READ, "read_at", [](File& f, DirectoryListing&, char* b) { return f.read_at(b, 1, 0) == 1; }},
        {FaultPoint::WRITE, "write", [](File& f, DirectoryListing&, char* b) { return f.write(b, 1) == 1; }},
        {FaultPoint::SET_END, "set_end", [](File& f, DirectoryListing&, char*) { return f.set_end(); }},
        {FaultPoint::STAT, "stat", [](File&, DirectoryListing&, char*) { return get_attributes("file").has_value(); }},
        {FaultPoint::LIST, "list", [](File&, DirectoryListing& l, char*) { return list_directory({"folder"}, l); }},
        {FaultPoint::REMOVE, "remove", [](File&, DirectoryListing&, char*) { return remove_file("gone"); }},
        {FaultPoint::RENAME, "rename", [](File&, DirectoryListing&, char*) { return rename_path("gone", "gone"); }},
        {FaultPoint::CREATE_DIRECTORY, "mkdir",
         [](File&, DirectoryListing&, char*) { return create_directory("made") && remove_directory("made"); }},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.label);
        disk::put("gone", "");
        disk::put("other", "0123456789");
        File file = File::open("other", for_both);
        inject_fault(row.point, 2, Failure::DISK_FULL, false);
        EXPECT_TRUE(row.act(file, listing, buffer)) << "before its turn";
        disk::put("gone", "");
        EXPECT_FALSE(row.act(file, listing, buffer));
        EXPECT_EQ(last_error().failure, Failure::DISK_FULL);
        EXPECT_TRUE(row.act(file, listing, buffer)) << "once only";
        disk::put("gone", "");
        inject_fault(row.point, 1, Failure::ACCESS_DENIED, true);
        for (int i = 0; i < 3; ++i) EXPECT_FALSE(row.act(file, listing, buffer));
        EXPECT_EQ(fault_hits(), 4u);
        clear_faults();
        EXPECT_EQ(fault_hits(), 0u);
        EXPECT_TRUE(row.act(file, listing, buffer));
    }
    File file = File::open("file", for_both);
    inject_fault(FaultPoint::WRITE, 1, Failure::NONE, false);
    inject_fault(FaultPoint::READ, 1, Failure::NONE, false);
    EXPECT_EQ(file.write("abcd", 4), 2u) << "a short write";
    EXPECT_EQ(file.read_at(buffer, 8, 0), 4u) << "a short read";
    EXPECT_EQ(std::string(buffer, 4), "ab23");
}

}  // namespace

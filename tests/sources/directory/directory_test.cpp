#include <engine/filesystem/sources/directory.h>

#include <gmock/gmock.h>

#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <engine/filesystem/access/search.h>
#include <engine/filesystem/contract/error.h>

#include "engine/filesystem/sources/directory/mount/recorded.h"
#include "engine/platform/clock.h"
#include "engine/platform/directories.h"
#include "engine/platform/faults.h"
#include "engine/platform/files.h"
#include "tests/sources/kit.h"
#include "tests/support/temp_directory.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
using testing::UnorderedElementsAreArray;

constexpr auto recursive = FFSAddSourceFlags::RECURSIVE;

std::string full_name(const fs::path& p) {
    fs::string text;
    p.FullName(text);
    return text;
}

class DirectorySource : public testing::Test {
protected:
    bool mount(FFSAddSourceFlags::ENUM flags = recursive, fs::dir_listing* listing = nullptr) {
        source_.set_native_spelling((disk_.path() + "/").c_str());
        return source_.init(as_dir(disk_.path()), flags, listing);
    }
    std::vector<std::string> all() { return all_names(source_); }
    std::string found(const std::string& query) {
        fs::path out;
        source_.root_path(out, as_path(query));
        return full_name(out);
    }

    TempDirectory disk_;
    CWin32_dir source_{EFSSourceType::DIR};
};

TEST_F(DirectorySource, ShowsWhatItScannedAndNothingThatIsHidden) {
    for (const char* name : {"a.txt", "Maps/One.BIN", "maps_2/x/y/deep", "#hidden", "#off/file", "maps_2/#no"})
        disk_.write(name, "1");
    ASSERT_TRUE(mount());
    EXPECT_THAT(all(), UnorderedElementsAre("a.txt", "maps/one.bin", "maps_2/x/y/deep"));
    EXPECT_TRUE(source_.exists(as_path("MAPS\\one.bin")));
    EXPECT_FALSE(source_.exists(as_path("#hidden")));
    EXPECT_NE(source_.dir_tree()->find("maps_2/x/y"), nullptr);
    EXPECT_EQ(source_.dir_tree()->find("#off"), nullptr);
    EXPECT_EQ(read_all(source_.open_read(as_path("maps/one.bin"), FFSOpenFlags::NONE)), "1");
    ASSERT_TRUE(mount(FFSAddSourceFlags::NONE)) << "without those below";
    EXPECT_THAT(all(), ElementsAre("a.txt"));
    EXPECT_EQ(source_.dir_tree()->first_child(), nullptr);
}

TEST_F(DirectorySource, TakesTheFirstFileScannedWhoseDirectoryMatches) {
    for (const char* name : {"b/f", "a/b/f", "ab/f", "z/f"}) disk_.write(name, name);
    ASSERT_TRUE(mount());
    const struct {
        std::string query;
        std::string answer;
    } cases[] = {
        {"f", "a/b/f"},        // no directory: the first scanned
        {"b/f", "a/b/f"},      // the query is a suffix of the stored directory
        {"x/a/b/f", "a/b/f"},  // the stored directory is a suffix of the query
        {"xb/f", "b/f"},       // character by character, not by components
        {"z/f", "z/f"},       {"q/f", ""}, {"z/g", ""}, {disk_.path() + "/z/f", "z/f"},
    };
    for (const auto& row : cases) EXPECT_EQ(found(row.query), row.answer) << row.query;
}

TEST_F(DirectorySource, EntersAWideTreeInOrderHoweverManyThreadsListIt) {
    std::vector<std::string> expected{""};
    for (int i = 100; i < 180; ++i) {
        const std::string dir = "d" + std::to_string(i) + "/";
        expected.push_back(dir);
        for (const char* inner : {"a/", "b/", "b/c/"}) {
            expected.push_back(dir + inner);
            disk_.write(dir + inner + "same", "");
        }
        disk_.write(dir + "same", "");
    }
    for (int round = 0; round < 5; ++round) {
        fs::dir_listing listing;
        ASSERT_TRUE(mount(recursive, &listing));
        std::vector<std::string> entered;
        fs::ListingReader reader(listing);
        for (fs::ListingReader::Directory dir; !reader.at_end() && reader.read_directory(dir);) {
            entered.emplace_back(dir.dir);
            EXPECT_EQ(dir.files, dir.dir.empty() ? 0u : 1u);
            ASSERT_TRUE(reader.skip_files(dir.files));
        }
        EXPECT_EQ(entered, expected);
        EXPECT_EQ(found("same"), "d100/same");
        EXPECT_EQ(found("c/same"), "d100/b/c/same");
        EXPECT_EQ(all().size(), expected.size() - 1);
    }
}

TEST_F(DirectorySource, ComparesAFileOfTheRootAsIfItsDirectoryWereTheRoot) {
    disk_.write("only", "1");
    ASSERT_TRUE(mount());
    const std::string root = std::filesystem::path(disk_.path()).filename().string();
    EXPECT_EQ(found(root + "/only"), "only");
    EXPECT_EQ(found("elsewhere/only"), "");
}

TEST_F(DirectorySource, MountsTheParentWhenAskedTo) {
    disk_.write("B/in/File", "x");
    disk_.write("other", "x");
    CWin32_dir source(EFSSourceType::DIR);
    source.set_native_spelling((disk_ / "B/").c_str());
    ASSERT_TRUE(source.init(as_dir(disk_ / "b"), recursive | FFSAddSourceFlags::MOUNT_PARENT, nullptr));
    EXPECT_EQ(std::string(source.root_dir()), disk_.path() + "/");
    EXPECT_THAT(test::take_names(source.get_file_list("", nullptr, true)), ElementsAre("b/in/file"));
    EXPECT_STREQ(source.dir_tree()->name(), "b");
    EXPECT_EQ(read_all(source.open_read(as_path("b/in/file"), FFSOpenFlags::NONE)), "x");
    disk_.write("B/in/Second", "y");
    source.refresh_dir("b/in");
    EXPECT_EQ(read_all(source.open_read(as_path("b/in/second"), FFSOpenFlags::NONE)), "y");
}

TEST_F(DirectorySource, MountsByItsFlags) {
    CWin32_dir source(EFSSourceType::SPECIAL);
    EXPECT_FALSE(source.init(fs::path(), recursive, nullptr));
    EXPECT_TRUE(source.init(as_dir(disk_ / "missing"), recursive, nullptr)) << "an unreadable root is merely empty";
    EXPECT_TRUE(source.writable());
    EXPECT_FALSE(source.init(as_dir(disk_ / "missing"), FFSAddSourceFlags::MUST_EXIST, nullptr));
    const std::string file = disk_.write("file", "1");
    EXPECT_FALSE(source.init(as_dir(file), FFSAddSourceFlags::MUST_EXIST, nullptr));
    EXPECT_FALSE(source.init(as_dir(std::string(300, 'x')), recursive, nullptr));
    EXPECT_TRUE(source.init(as_dir(disk_.path()), FFSAddSourceFlags::MUST_EXIST, nullptr));
    EXPECT_FALSE(source.writable());
    EXPECT_FALSE(source.is_protected());
    EXPECT_TRUE(source.init(as_dir(disk_.path()), FFSAddSourceFlags::PROTECTED, nullptr));
    EXPECT_FALSE(source.writable());
    EXPECT_TRUE(source.is_protected());
    EXPECT_EQ(source.type(), EFSSourceType::SPECIAL);
    EXPECT_EQ(source.path(), as_dir(disk_.path()));
    EXPECT_EQ(source.flags(), FFSAddSourceFlags::PROTECTED);
}

TEST_F(DirectorySource, ShowsOnlyTheFilesOfItsIncludeList) {
    for (const char* name : {"a/one", "a/two", "one"}) disk_.write(name, "1");
    const char* include[] = {"A\\One", "nothing", nullptr};
    CWin32_dir source(EFSSourceType::DIR, include);
    ASSERT_TRUE(source.init(as_dir(disk_.path()), recursive, nullptr));
    EXPECT_THAT(all_names(source), ElementsAre("a/one"));
}

TEST_F(DirectorySource, KnowsNoPathThatIsTooLongForTheDisk) {
    const std::string part(100, 'p');
    disk_.write(part + "/" + std::string(20, 'n'), "1");
    const std::size_t room = 259 - disk_.path().size() - 102;
    disk_.write(part + "/" + std::string(room, 'f'), "1");
    ASSERT_TRUE(mount());
    EXPECT_EQ(all().size(), 2u);
    EXPECT_EQ(source_.create_write(as_path(part + "/" + std::string(room + 1, 'f')), FFSOpenFlags::NONE), nullptr);
}

TEST_F(DirectorySource, AnswersListsByDirectoryMaskAndFlag) {
    for (const char* name : {"r.txt", "a/1.txt", "a/2.bin", "a/b/3.txt", "ab/4.txt"}) disk_.write(name, "1");
    ASSERT_TRUE(mount());
    const struct {
        const char* dir;
        const char* mask;
        bool flag;
        std::vector<std::string> names;
    } cases[] = {
        {nullptr, nullptr, false, {"r.txt", "a/1.txt", "a/2.bin", "a/b/3.txt", "ab/4.txt"}},
        {"", "", false, {"r.txt"}},
        {"", "*.txt", true, {"r.txt", "a/1.txt", "a/b/3.txt", "ab/4.txt"}},
        {"a", nullptr, false, {"a/1.txt", "a/2.bin"}},
        {"a", "?.TXT", true, {"a/1.txt", "a/b/3.txt"}},
        {"nowhere", nullptr, true, {}},
    };
    for (const auto& row : cases) {
        EXPECT_THAT(test::take_names(source_.get_file_list(row.dir, row.mask, row.flag)),
                    testing::UnorderedElementsAreArray(row.names))
            << (row.dir ? row.dir : "(null)") << " " << (row.mask ? row.mask : "(null)") << " " << row.flag;
    }
}

std::vector<std::string> heard;

TEST_F(DirectorySource, FindsTextInDirectoriesLastBucketFirst) {
    for (const char* name : {"abc/x", "abc/y", "z/bc/x", "bc"}) disk_.write(name, "1");
    ASSERT_TRUE(mount());
    heard.clear();
    fs::set_search_callback([](const char* dir, const char* name) { heard.push_back(std::string(dir) + "|" + name); });
    // "y" has the bucket before that of "x", and each hit goes to the front.
    EXPECT_THAT(test::take_names(source_.search_substring("bc")), ElementsAre("z/bc/x", "abc/x", "abc/y"));
    fs::set_search_callback(nullptr);
    EXPECT_THAT(heard, ElementsAre("abc/|y", "abc/|x", "z/bc/|x"));
    EXPECT_THAT(test::take_names(source_.search_substring("bc/")), IsEmpty()) << "the last slash takes no part";
    EXPECT_EQ(source_.search_substring(""), nullptr);
    EXPECT_EQ(source_.search_substring(nullptr), nullptr);
}

TEST_F(DirectorySource, TellsOfDuplicateNames) {
    for (const char* name : {"a/f.txt", "b/f.txt", "c/f.txt", "a/g.bin", "b/g.bin", "one.txt"}) disk_.write(name, "1");
    ASSERT_TRUE(mount());
    const std::string root = disk_.path() + "/";
    ztl::vector<fs::string> lines{"kept"};
    source_.dump(lines, ".txt");
    EXPECT_THAT(lines, ElementsAre("kept", "0. " + root + "a/f.txt", "1. " + root + "b/f.txt", "2. " + root + "c/f.txt",
                                   "0. " + root + "b/f.txt", "1. " + root + "c/f.txt"));
    lines.clear();
    source_.dump(lines, nullptr);
    EXPECT_EQ(lines.size(), 7u);
}

TEST_F(DirectorySource, CreatesWithTheCallersCaseAndReusesWhatExists) {
    disk_.write("Maps/old", "1");
    ASSERT_TRUE(mount());
    fs::path wanted("MAPS/New/File.TXT", false);
    EXPECT_TRUE(write_all(source_.create_write(wanted, FFSOpenFlags::NONE), "text"));
    EXPECT_EQ(disk_.read("Maps/New/File.TXT"), "text");
    EXPECT_EQ(found("maps/new/file.txt"), "maps/new/file.txt");
    EXPECT_NE(source_.dir_tree()->find("maps/new"), nullptr);
    SFsFile* file = source_.open_read(as_path("maps/new/file.txt"), FFSOpenFlags::NONE);
    ASSERT_NE(file, nullptr);
    EXPECT_STREQ(file->name, "maps/new/file.txt");
    EXPECT_EQ(file->source, &source_);
    EXPECT_EQ(read_all(file), "text");
    EXPECT_TRUE(write_all(source_.create_read_write(wanted, FFSOpenFlags::NONE), "2"));
    EXPECT_EQ(all().size(), 2u) << "a file made again is entered once";
}

TEST_F(DirectorySource, CreatesNothingOutsideAndNoNameThatNotEverySystemHolds) {
    ASSERT_TRUE(mount());
    for (const char* name :
         {"", "dir/", "../x", "a/../../x", "a:b", "what?", "dot.", "blank ", "con", "d*r/x", "a\x01"}) {
        EXPECT_EQ(source_.create_write(fs::path(name, false), FFSOpenFlags::NONE), nullptr) << name;
        EXPECT_EQ(source_.create_read_write(fs::path(name, false), FFSOpenFlags::NONE), nullptr) << name;
    }
    for (const char* name : {"", "..", "../x", "a/b?", "/"}) EXPECT_FALSE(source_.mkdir(as_dir(name, false))) << name;
    EXPECT_TRUE(std::filesystem::is_empty(disk_.path()));
    EXPECT_TRUE(source_.mkdir(as_dir("New/Dir", false)));
    EXPECT_TRUE(source_.mkdir(as_dir("new/dir", false))) << "making what exists is no failure";
    EXPECT_TRUE(disk_.exists("New/Dir"));
    EXPECT_NE(source_.dir_tree()->find("new/dir"), nullptr);
}

TEST_F(DirectorySource, OpensInEachModeAndTellsTheMonitor) {
    disk_.write("F", "12345");
    ASSERT_TRUE(mount());
    const RecordingMonitor monitor;
    const fs::path f = as_path("f");
    EXPECT_TRUE(write_all(source_.open_append(f, FFSOpenFlags::NONE), "67"));
    EXPECT_EQ(disk_.read("F"), "1234567");
    EXPECT_TRUE(write_all(source_.open_read_write(f, FFSOpenFlags::NONE), "ab"));
    EXPECT_EQ(disk_.read("F"), "ab34567");
    EXPECT_TRUE(write_all(source_.open_read_write(f, FFSOpenFlags::CREATE), "x"));
    EXPECT_EQ(disk_.read("F"), "x");
    EXPECT_TRUE(write_all(source_.open_write(f, FFSOpenFlags::WRITE_THROUGH), "yz"));
    EXPECT_EQ(disk_.read("F"), "yz");
    EXPECT_EQ(read_all(source_.open_read(f, FFSOpenFlags::THROUGH_VFS)), "yz") << "asked through the sources already";
    EXPECT_TRUE(write_all(source_.create_write(as_path("new"), FFSOpenFlags::NONE), "1"));
    EXPECT_TRUE(write_all(source_.create_read_write(as_path("new2"), FFSOpenFlags::NONE), "1"));
    EXPECT_THAT(monitor.touched, ElementsAre("F 2+0", "F 3+0", "F 3+32", "F 1+2", "F 0+0", "new 1+32", "new2 3+0"));
}

TEST_F(DirectorySource, RefusesModesAndFlagsThatExcludeEachOther) {
    disk_.write("f", "1");
    ASSERT_TRUE(mount());
    const fs::path f = as_path("f");
    for (const auto flag : {FFSOpenFlags::GZIP_LEVEL1, FFSOpenFlags::GZIP_LEVEL5, FFSOpenFlags::GZIP_LEVEL9}) {
        EXPECT_EQ(source_.open_append(f, flag), nullptr);
        EXPECT_EQ(source_.open_read_write(f, flag), nullptr);
    }
    EXPECT_EQ(source_.open_read_write(f, FFSOpenFlags::GZIP | FFSOpenFlags::CREATE), nullptr);
    EXPECT_EQ(source_.open_read(as_path("missing"), FFSOpenFlags::NONE), nullptr);
    EXPECT_EQ(disk_.read("f"), "1");
}

TEST_F(DirectorySource, DeletesFilesAndForgetsOnlyThoseThatAreGone) {
    disk_.write("a/F", "1");
    disk_.write("a/kept", "1");
    ASSERT_TRUE(mount());
    EXPECT_FALSE(source_.rem_file(as_path("../a/f"))) << "a suffix match must not make this a file of ours";
    EXPECT_FALSE(source_.rem_file(as_path("a/")));
    EXPECT_TRUE(source_.rem_file(as_path("a/f")));
    EXPECT_FALSE(disk_.exists("a/F"));
    EXPECT_FALSE(source_.exists(as_path("a/f")));
    EXPECT_TRUE(source_.set_read_only(as_path("a/kept"), true));
    EXPECT_FALSE(source_.rem_file(as_path("a/kept")));
    EXPECT_TRUE(source_.exists(as_path("a/kept")));
    EXPECT_TRUE(source_.read_only(as_path("a/kept")));
    EXPECT_TRUE(source_.set_read_only(as_path("a/kept"), false));
    EXPECT_FALSE(source_.read_only(as_path("a/kept")));
    EXPECT_FALSE(source_.set_read_only(as_path("missing"), true));
}

TEST_F(DirectorySource, RemovesATreeWithItsNames) {
    for (const char* name : {"Del/f", "Del/Sub/g", "keep/f"}) disk_.write(name, "1");
    ASSERT_TRUE(mount());
    for (const char* dir : {"", "/", "..", "../x"}) source_.rem_dir(as_dir(dir));
    EXPECT_EQ(all().size(), 3u);
    source_.rem_dir(as_dir("del"));
    EXPECT_FALSE(disk_.exists("Del"));
    EXPECT_THAT(all(), ElementsAre("keep/f"));
    EXPECT_EQ(source_.dir_tree()->find("del"), nullptr);
    EXPECT_NE(source_.dir_tree()->find("keep"), nullptr);
}

TEST_F(DirectorySource, RenamesWithinItself) {
    disk_.write("a/Old", "1");
    disk_.write("taken", "2");
    ASSERT_TRUE(mount());
    EXPECT_FALSE(source_.rename_file(as_path("a/old"), fs::path("taken", false)));
    EXPECT_FALSE(source_.rename_file(as_path("a/old"), fs::path("../x", false)));
    EXPECT_FALSE(source_.rename_file(as_path("missing"), fs::path("x", false)));
    EXPECT_TRUE(source_.rename_file(as_path("a/old"), fs::path("B/New", false)));
    EXPECT_EQ(disk_.read("B/New"), "1");
    EXPECT_THAT(all(), UnorderedElementsAre("b/new", "taken"));
    EXPECT_TRUE(source_.rename_file(as_path("b/new"), fs::path("b/NEW", false))) << "a change of case alone";
    std::vector<std::string> names;
    for (const auto& item : std::filesystem::directory_iterator(disk_ / "B"))
        names.push_back(item.path().filename().string());
    EXPECT_THAT(names, ElementsAre("NEW"));
    EXPECT_EQ(read_all(source_.open_read(as_path("b/new"), FFSOpenFlags::NONE)), "1");
}

TEST_F(DirectorySource, AnswersTimesInLocalTime) {
    disk_.write("f", "1");
    ASSERT_TRUE(mount());
    const std::int64_t time = 132'000'000'000'000'000;  // some day of 2019, whole milliseconds
    EXPECT_TRUE(source_.set_write_time(as_path("f"), time));
    EXPECT_EQ(source_.write_time(as_path("f")), time);
    EXPECT_EQ(platform::get_attributes((disk_ / "f").c_str())->write_time, platform::local_to_utc(time));
    EXPECT_EQ(source_.write_time(as_path("missing")), -1);
    EXPECT_FALSE(source_.set_write_time(as_path("missing"), time));
    source_.set_read_only(as_path("f"), true);
    EXPECT_TRUE(source_.set_write_time(as_path("f"), time + 10'000'000)) << "true even where the disk refuses";
    EXPECT_EQ(source_.write_time(as_path("f")), time);
    source_.set_read_only(as_path("f"), false);
}

TEST_F(DirectorySource, MarksFilesAsInstalledOrNot) {
    disk_.write("a", "1");
    disk_.write("b", "1");
    ASSERT_TRUE(mount());
    EXPECT_EQ(source_.is_installed(as_path("a")), 2);
    source_.mark_installed_all(false);
    source_.mark_installed(as_path("b"), true);
    source_.mark_installed(as_path("missing"), true);
    EXPECT_EQ(source_.is_installed(as_path("a")), 1);
    EXPECT_EQ(source_.is_installed(as_path("b")), 2);
    EXPECT_EQ(source_.is_installed(as_path("missing")), 0);
}

TEST_F(DirectorySource, RefreshesOneDirectoryOrAll) {
    disk_.write("A/old", "1");
    disk_.write("A/sub/f", "1");
    ASSERT_TRUE(mount());
    std::filesystem::remove(disk_ / "A/old");
    std::filesystem::remove(disk_ / "A/sub/f");
    disk_.write("A/new", "1");
    disk_.write("top", "1");
    source_.refresh_dir("unknown");
    source_.refresh_dir("a");
    EXPECT_THAT(all(), UnorderedElementsAre("a/new", "a/sub/f")) << "no directory below it is read again";
    EXPECT_EQ(read_all(source_.open_read(as_path("a/new"), FFSOpenFlags::NONE)), "1");
    source_.refresh_dir("");
    EXPECT_THAT(all(), UnorderedElementsAre("a/new", "a/sub/f", "top"));
    source_.refresh();
    EXPECT_THAT(all(), UnorderedElementsAre("a/new", "top"));
    source_.clear();
    EXPECT_THAT(all(), IsEmpty());
    EXPECT_EQ(source_.dir_tree()->first_child(), nullptr);
    EXPECT_EQ(source_.path(), as_dir(disk_.path()));
}

TEST_F(DirectorySource, GivesFullPathsInLowerCase) {
    disk_.write("Sub/File", "1");
    ASSERT_TRUE(mount());
    fs::path out;
    source_.full_path(out, as_path("file"));
    EXPECT_EQ(full_name(out), disk_.path() + "/sub/file");
    source_.full_path(out, as_path("missing"));
    EXPECT_TRUE(out.Empty());
    char native[260];
    EXPECT_TRUE(source_.native_path(as_path("file"), native, sizeof native));
    EXPECT_THAT(native, testing::EndsWith("/Sub/File"));
    EXPECT_EQ(std::strlen(native), (disk_.path() + "/Sub/File").size());
    EXPECT_FALSE(source_.native_path(as_path("file"), native, 5));
}

TEST_F(DirectorySource, AnswersNullForAFileThatVanishedAfterItsLookUp) {
    disk_.write("gone", "1");
    ASSERT_TRUE(mount());
    std::filesystem::remove(disk_ / "gone");
    EXPECT_TRUE(source_.exists(as_path("gone")));
    EXPECT_EQ(source_.open_read(as_path("gone"), FFSOpenFlags::NONE), nullptr);
    EXPECT_EQ(source_.open_write(as_path("gone"), FFSOpenFlags::NONE), nullptr);
    EXPECT_EQ(source_.write_time(as_path("gone")), -1);
    EXPECT_FALSE(source_.rem_file(as_path("gone")));
    EXPECT_TRUE(write_all(source_.create_write(as_path("gone"), FFSOpenFlags::NONE), "2"));
    EXPECT_EQ(read_all(source_.open_read(as_path("gone"), FFSOpenFlags::NONE)), "2");
    EXPECT_EQ(all().size(), 1u);
}

TEST_F(DirectorySource, FillsFromAListingAsFromTheDisk) {
    for (const char* name : {"top", "Maps/One", "Maps/deep/er/Two", "#no"}) disk_.write(name, "1");
    std::filesystem::create_directories(disk_ / "empty/dir");
    fs::dir_listing listing;
    ASSERT_TRUE(mount(recursive, &listing));
    EXPECT_FALSE(listing.is_empty());
    const std::vector<std::string> scanned = all();
    disk_.write("later", "1");
    ASSERT_TRUE(mount(recursive, &listing));
    EXPECT_EQ(all(), scanned) << "the disk is not listed again";
    EXPECT_NE(source_.dir_tree()->find("empty/dir"), nullptr);
    EXPECT_EQ(read_all(source_.open_read(as_path("maps/deep/er/two"), FFSOpenFlags::NONE)), "1");
}

TEST_F(DirectorySource, TakesAFullPathForTheFileThereAlone) {
    for (const char* name : {"textures/sky", "a/textures/sky"}) disk_.write(name, name);
    ASSERT_TRUE(mount());
    EXPECT_EQ(found(disk_.path() + "/textures/sky"), "textures/sky") << "though another is the first by the end";
    for (const std::string& outside : {std::string("/elsewhere/textures/sky"), disk_.path() + "x/textures/sky"}) {
        EXPECT_EQ(found(outside), "") << outside;
        EXPECT_EQ(source_.open_write(as_path(outside), FFSOpenFlags::NONE), nullptr) << outside;
        EXPECT_EQ(source_.create_write(as_path(outside), FFSOpenFlags::NONE), nullptr) << outside;
        EXPECT_FALSE(source_.mkdir(as_dir(outside))) << outside;
        EXPECT_EQ(fs::last_error().code, EFSError::INVALID_NAME);
        EXPECT_FALSE(source_.rem_file(as_path(outside))) << outside;
    }
    // Made by its full path, a file is entered below the root like any other.
    const std::string made = disk_.path() + "/New/made";
    EXPECT_TRUE(write_all(source_.create_write(fs::path(made.c_str(), false), FFSOpenFlags::NONE), "1"));
    EXPECT_EQ(test::take_names(source_.get_file_list("new", nullptr, false)), std::vector<std::string>{"new/made"});
    source_.refresh();
    source_.refresh_dir((disk_.path() + "/new").c_str());
    EXPECT_EQ(all().size(), 3u);
    EXPECT_TRUE(source_.rem_file(as_path(made)));
    EXPECT_EQ(found("new/made"), "");
    source_.rem_dir(as_dir(disk_.path() + "/new"));
    EXPECT_FALSE(disk_.exists("New"));
}

TEST_F(DirectorySource, ChangesTheFileOfExactlyTheNameWhereThereIsOne) {
    for (const char* name : {"a/save", "save"}) disk_.write(name, "1");
    ASSERT_TRUE(mount());
    source_.refresh_dir("");  // so that "a/save" is the first by the end
    ASSERT_EQ(found("save"), "a/save");
    EXPECT_TRUE(source_.exists_whole(as_path("save")));
    EXPECT_TRUE(write_all(source_.open_write(as_path("save"), FFSOpenFlags::WHOLE_NAME), "root"));
    EXPECT_EQ(disk_.read("save"), "root");
    EXPECT_TRUE(source_.set_read_only(as_path("save"), true));
    EXPECT_FALSE(source_.read_only(as_path("a/save")));
    EXPECT_TRUE(source_.set_read_only(as_path("save"), false));
    EXPECT_TRUE(source_.rem_file(as_path("save")));
    EXPECT_TRUE(disk_.exists("a/save"));
    EXPECT_FALSE(source_.exists_whole(as_path("save")));
    EXPECT_EQ(source_.open_read(as_path("save"), FFSOpenFlags::WHOLE_NAME), nullptr);
    EXPECT_TRUE(source_.rename_file(as_path("a/save"), as_path("b/save")));
    EXPECT_THAT(all(), ElementsAre("b/save"));
}

// A disk that fails on order.
class DirectorySourceFaults : public DirectorySource {
protected:
    ~DirectorySourceFaults() override { platform::clear_faults(); }
};

TEST_F(DirectorySourceFaults, ADirectoryThatCannotBeListedIsToldAndKeepsItsNames) {
    const std::vector<std::string> whole{"a/f", "b/f", "c/f"};
    for (const std::string& name : whole) disk_.write(name, "1");
    for (const platform::Failure failure : {platform::Failure::NOT_FOUND, platform::Failure::ACCESS_DENIED}) {
        const std::uint32_t missed = failure == platform::Failure::NOT_FOUND ? 0 : 1;  // what is gone is not missed
        for (std::uint32_t nth = 1; nth <= 4; ++nth) {
            SCOPED_TRACE(nth);
            const std::size_t left = nth == 1 ? 0 : 2;
            fs::clear_error();
            platform::inject_fault(platform::FaultPoint::LIST, nth, failure, false);
            ASSERT_TRUE(mount());
            EXPECT_EQ(all().size(), left);
            EXPECT_EQ(source_.unlisted_directories(), missed);
            EXPECT_EQ(fs::last_error().code, missed == 0 ? EFSError::NONE : EFSError::ACCESS_DENIED);
            source_.refresh();
            EXPECT_EQ(source_.unlisted_directories(), 0u);
            platform::inject_fault(platform::FaultPoint::LIST, nth, failure, false);
            source_.refresh();
            EXPECT_THAT(all(), testing::SizeIs(missed == 0 ? left : 3));
            EXPECT_EQ(source_.unlisted_directories(), missed);
            if (missed != 0 && nth == 1) EXPECT_NE(source_.dir_tree()->find("b"), nullptr);
        }
    }
    platform::inject_fault(platform::FaultPoint::LIST, 1, platform::Failure::ACCESS_DENIED, true);
    source_.refresh_dir("a");
    EXPECT_THAT(all(), UnorderedElementsAreArray(whole));
    platform::clear_faults();
    source_.refresh();
    EXPECT_THAT(all(), UnorderedElementsAreArray(whole));
}

TEST_F(DirectorySourceFaults, AFullDiskFailsTheWriteAndNothingElse) {
    ASSERT_TRUE(mount());
    SFsFile* file = source_.create_write(as_path("f"), FFSOpenFlags::NONE);
    ASSERT_NE(file, nullptr);
    platform::inject_fault(platform::FaultPoint::WRITE, 1, platform::Failure::DISK_FULL, true);
    EXPECT_EQ(fs::write(file, "1234", 4), ~std::uint64_t{0});
    platform::clear_faults();
    EXPECT_EQ(fs::write(file, "1234", 4), 4u);
    fs::close(file);
    EXPECT_EQ(disk_.read("f"), "1234");
}

TEST_F(DirectorySourceFaults, ARefusalOfTheDiskLeavesTableAndTreeAsTheyWere) {
    disk_.write("a/f", "1");
    ASSERT_TRUE(mount());
    using platform::FaultPoint;
    for (const FaultPoint point :
         {FaultPoint::CREATE_DIRECTORY, FaultPoint::OPEN, FaultPoint::REMOVE, FaultPoint::RENAME}) {
        platform::inject_fault(point, 1, platform::Failure::ACCESS_DENIED, true);
        if (point == FaultPoint::CREATE_DIRECTORY) {
            EXPECT_FALSE(source_.mkdir(as_dir("new")));
            EXPECT_EQ(source_.create_write(as_path("new/f"), FFSOpenFlags::NONE), nullptr);
            EXPECT_EQ(source_.dir_tree()->find("new"), nullptr);
        } else if (point == FaultPoint::OPEN) {
            EXPECT_EQ(source_.create_write(as_path("g"), FFSOpenFlags::NONE), nullptr);
            EXPECT_EQ(source_.open_append(as_path("a/f"), FFSOpenFlags::NONE), nullptr);
        } else if (point == FaultPoint::REMOVE) {
            EXPECT_FALSE(source_.rem_file(as_path("a/f")));
            fs::clear_error();
            source_.rem_dir(as_dir("a"));
            EXPECT_EQ(fs::last_error().code, EFSError::ACCESS_DENIED);
            EXPECT_THAT(fs::last_error().path, testing::EndsWith("/a/f")) << "the first that stays";
        } else {
            EXPECT_FALSE(source_.rename_file(as_path("a/f"), as_path("a/g")));
        }
        EXPECT_GT(platform::fault_hits(), 0u);
        platform::clear_faults();
        EXPECT_THAT(all(), ElementsAre("a/f"));
    }
    EXPECT_EQ(read_all(source_.open_read(as_path("a/f"), FFSOpenFlags::NONE)), "1");
}

}  // namespace

#include <engine/filesystem/sources/directory.h>

#include <gmock/gmock.h>

#include <cstring>
#include <filesystem>
#include <functional>
#include <iterator>
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

constexpr auto recursive = FFSAddSourceFlags::RECURSIVE;

class DirectorySource : public testing::Test {
protected:
    bool mount(FFSAddSourceFlags::ENUM flags = recursive, fs::dir_listing* listing = nullptr) {
        source_.set_native_spelling((disk_.path() + "/").c_str());
        return source_.init(as_dir(disk_.path()), flags, listing);
    }
    /// Mounts over these files, each of which holds its own name.
    bool mount_with(std::initializer_list<const char*> names) {
        for (const char* name : names) disk_.write(name, name);
        return mount();
    }
    std::vector<std::string> all() { return all_names(source_); }
    std::string found(const std::string& query) {
        fs::path out;
        source_.root_path(out, as_path(query));
        return as_text(out);
    }

    TempDirectory disk_;
    CWin32_dir source_{EFSSourceType::DIR};
};

TEST_F(DirectorySource, ShowsWhatItScannedAndNothingThatIsHidden) {
    ASSERT_TRUE(mount_with({"a.txt", "Maps/One.BIN", "maps_2/x/y/deep", "#hidden", "#off/file", "maps_2/#no"}));
    EXPECT_THAT(all(), UnorderedElementsAre("a.txt", "maps/one.bin", "maps_2/x/y/deep"));
    EXPECT_TRUE(source_.exists(as_path("MAPS\\one.bin")));
    EXPECT_FALSE(source_.exists(as_path("#hidden")));
    EXPECT_NE(source_.dir_tree()->find("maps_2/x/y"), nullptr);
    EXPECT_EQ(source_.dir_tree()->find("#off"), nullptr);
    EXPECT_EQ(read_all(source_.open_read(as_path("maps/one.bin"), FFSOpenFlags::NONE)), "Maps/One.BIN");
    ASSERT_TRUE(mount(FFSAddSourceFlags::NONE)) << "without those below";
    EXPECT_THAT(all(), ElementsAre("a.txt"));
    EXPECT_EQ(source_.dir_tree()->first_child(), nullptr);
}

TEST_F(DirectorySource, TakesTheFirstFileScannedWhoseDirectoryMatches) {
    ASSERT_TRUE(mount_with({"b/f", "a/b/f", "ab/f", "z/f", "only"}));
    const std::string root = std::filesystem::path(disk_.path()).filename().string();
    const struct {
        std::string query;
        std::string answer;
    } cases[] = {
        {"f", "a/b/f"},        // no directory: the first scanned
        {"b/f", "a/b/f"},      // the query is a suffix of the stored directory
        {"x/a/b/f", "a/b/f"},  // the stored directory is a suffix of the query
        {"xb/f", "b/f"},       // character by character, not by components
        {"z/f", "z/f"},
        {"q/f", ""},
        {"z/g", ""},
        {root + "/only", "only"},  // a file of the root is compared as if its directory were the root
        {"elsewhere/only", ""},
        {disk_.path() + "/b/f", "b/f"},  // a full path is the file there alone
        {"/elsewhere/b/f", ""},
        {disk_.path() + "x/b/f", ""},
    };
    for (const auto& row : cases) EXPECT_EQ(found(row.query), row.answer) << row.query;
    fs::path out;
    source_.full_path(out, as_path("z/f"));
    EXPECT_EQ(as_text(out), disk_.path() + "/z/f");
    source_.full_path(out, as_path("missing"));
    EXPECT_TRUE(out.Empty());
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

std::vector<std::string> heard;

TEST_F(DirectorySource, FindsTextInDirectoriesLastBucketFirst) {
    ASSERT_TRUE(mount_with({"abc/x", "abc/y", "z/bc/x", "bc"}));
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
    ASSERT_TRUE(mount_with({"a/f.txt", "b/f.txt", "c/f.txt", "a/g.bin", "b/g.bin", "one.txt"}));
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
    ASSERT_TRUE(mount_with({"Maps/old"}));
    const RecordingMonitor monitor;
    const fs::path wanted("MAPS/New/File.TXT", false);
    EXPECT_TRUE(write_all(source_.create_write(wanted, FFSOpenFlags::NONE), "text"));
    EXPECT_EQ(disk_.read("Maps/New/File.TXT"), "text");
    EXPECT_EQ(found("maps/new/file.txt"), "maps/new/file.txt");
    EXPECT_NE(source_.dir_tree()->find("maps/new"), nullptr);
    EXPECT_EQ(read_all(source_.open_read(as_path("maps/new/file.txt"), FFSOpenFlags::NONE)), "text");
    EXPECT_TRUE(write_all(source_.create_read_write(wanted, FFSOpenFlags::NONE), "2"));
    EXPECT_EQ(all().size(), 2u) << "a file made again is entered once";
    EXPECT_THAT(monitor.touched, ElementsAre("File.TXT 1+32", "File.TXT 0+0", "File.TXT 3+0"));
    EXPECT_TRUE(source_.mkdir(as_dir("MAPS/Dir", false)));
    EXPECT_TRUE(source_.mkdir(as_dir("maps/dir", false))) << "making what exists is no failure";
    EXPECT_TRUE(disk_.exists("Maps/Dir"));
    char native[260];
    EXPECT_TRUE(source_.native_path(as_path("file.txt"), native, sizeof native));
    EXPECT_THAT(native, testing::EndsWith("/Maps/New/File.TXT"));
    EXPECT_FALSE(source_.native_path(as_path("file.txt"), native, std::strlen(native)));
}

TEST_F(DirectorySource, ChangesNothingOutsideAndMakesNoNameThatNotEverySystemHolds) {
    ASSERT_TRUE(mount_with({"a/f"}));
    const std::string outside = disk_.path() + "x/f";
    for (const char* name : {"", "dir/", "../x", "a/../../x", "a:b", "what?", "dot.", "blank ", "con", "d*r/x", "a\x01",
                             "/elsewhere/a/f", outside.c_str()}) {
        const fs::path path(name, false);
        EXPECT_EQ(source_.create_write(path, FFSOpenFlags::NONE), nullptr) << name;
        EXPECT_EQ(source_.create_read_write(path, FFSOpenFlags::NONE), nullptr) << name;
        EXPECT_FALSE(source_.rename_file(as_path("a/f"), path)) << name;
        EXPECT_EQ(fs::last_error().code, EFSError::INVALID_NAME) << name;
    }
    for (const char* name : {"", "..", "../x", "a/b?", "/", outside.c_str()}) {
        EXPECT_FALSE(source_.mkdir(as_dir(name, false))) << name;
        EXPECT_EQ(fs::last_error().code, EFSError::INVALID_NAME) << name;
    }
    for (const std::string& name : {std::string("../a/f"), std::string("a/"), outside})
        EXPECT_FALSE(source_.rem_file(as_path(name))) << "not the file that the name ends like: " << name;
    for (const char* dir : {"", "/", "..", "../a"}) source_.rem_dir(as_dir(dir));
    EXPECT_THAT(all(), ElementsAre("a/f"));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(disk_.path()), {}), 1);
}

TEST_F(DirectorySource, AnswersTimesInLocalTimeAndMarksFilesAsInstalledOrNot) {
    ASSERT_TRUE(mount_with({"a", "b"}));
    const std::int64_t time = 132'000'000'000'000'000;
    EXPECT_TRUE(source_.set_write_time(as_path("a"), time));
    EXPECT_EQ(platform::get_attributes((disk_ / "a").c_str())->write_time, platform::local_to_utc(time));
    EXPECT_FALSE(source_.set_write_time(as_path("missing"), time));
    EXPECT_EQ(source_.is_installed(as_path("a")), 2);
    source_.mark_installed_all(false);
    source_.mark_installed(as_path("b"), true);
    source_.mark_installed(as_path("missing"), true);
    EXPECT_EQ(source_.is_installed(as_path("a")), 1);
    EXPECT_EQ(source_.is_installed(as_path("b")), 2);
}

TEST_F(DirectorySource, ChangesTheFileOfExactlyTheNameWhereThereIsOne) {
    ASSERT_TRUE(mount_with({"a/save", "save"}));
    source_.refresh_dir("");  // so that "a/save" is the first by the end
    ASSERT_EQ(found("save"), "a/save");
    EXPECT_TRUE(write_all(source_.open_write(as_path("save"), FFSOpenFlags::WHOLE_NAME), "root"));
    EXPECT_EQ(disk_.read("save"), "root");
    EXPECT_TRUE(source_.set_read_only(as_path("save"), true));
    EXPECT_FALSE(source_.read_only(as_path("a/save")));
    EXPECT_TRUE(source_.set_read_only(as_path("save"), false) && source_.rem_file(as_path("save")));
    EXPECT_TRUE(disk_.exists("a/save"));
    EXPECT_FALSE(source_.exists_whole(as_path("save")));
    EXPECT_TRUE(source_.rename_file(as_path("a/save"), as_path("b/save")));
    EXPECT_THAT(all(), ElementsAre("b/save"));
}

TEST_F(DirectorySource, RemovesATreeWithItsNames) {
    ASSERT_TRUE(mount_with({"Del/f", "Del/Sub/g", "keep/f"}));
    source_.rem_dir(as_dir("del"));
    EXPECT_FALSE(disk_.exists("Del"));
    EXPECT_THAT(all(), ElementsAre("keep/f"));
    EXPECT_EQ(source_.dir_tree()->find("del"), nullptr);
    EXPECT_NE(source_.dir_tree()->find("keep"), nullptr);
}

TEST_F(DirectorySource, RefreshesOneDirectoryOrAll) {
    ASSERT_TRUE(mount_with({"A/old", "A/sub/f"}));
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

TEST_F(DirectorySource, AnswersNullForAFileThatVanishedAfterItsLookUp) {
    ASSERT_TRUE(mount_with({"gone"}));
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
    EXPECT_THAT(all(), testing::UnorderedElementsAreArray(whole));
    platform::clear_faults();
    source_.refresh();
    EXPECT_THAT(all(), testing::UnorderedElementsAreArray(whole));
}

TEST_F(DirectorySourceFaults, ARefusalOfTheDiskLeavesTableAndTreeAsTheyWere) {
    ASSERT_TRUE(mount_with({"a/f"}));
    using platform::FaultPoint;
    const fs::path f = as_path("a/f");
    const struct {
        FaultPoint point;
        std::function<bool()> change;
    } rows[] = {
        {FaultPoint::CREATE_DIRECTORY, [&] { return source_.mkdir(as_dir("new")); }},
        {FaultPoint::CREATE_DIRECTORY, [&] { return write_all(source_.create_write(as_path("new/f"), {}), ""); }},
        {FaultPoint::OPEN, [&] { return write_all(source_.create_write(as_path("g"), {}), ""); }},
        {FaultPoint::REMOVE, [&] { return source_.rem_file(f); }},
        {FaultPoint::REMOVE, [&] { return source_.rem_dir(as_dir("a")), false; }},
        {FaultPoint::RENAME, [&] { return source_.rename_file(f, as_path("a/g")); }},
    };
    for (const auto& row : rows) {
        fs::clear_error();
        platform::inject_fault(row.point, 1, platform::Failure::ACCESS_DENIED, true);
        EXPECT_FALSE(row.change());
        EXPECT_GT(platform::fault_hits(), 0u);
        EXPECT_EQ(fs::last_error().code, EFSError::ACCESS_DENIED);
        if (row.point == FaultPoint::REMOVE) EXPECT_THAT(fs::last_error().path, testing::EndsWith("/a/f"));
        platform::clear_faults();
        EXPECT_THAT(all(), ElementsAre("a/f"));
        EXPECT_EQ(source_.dir_tree()->find("new"), nullptr);
    }
    EXPECT_EQ(read_all(source_.open_read(f, FFSOpenFlags::NONE)), "a/f");
}

}  // namespace

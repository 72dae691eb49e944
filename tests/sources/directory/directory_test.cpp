// What a directory source has beyond conformance_test.cpp, and the fallback.
#include <iterator>
#include <tuple>

#include "engine/platform/clock.h"
#include "engine/platform/files.h"
#include "engine/platform/process.h"
#include "tests/sources/kit.h"

namespace {

using platform::Failure;
using platform::FaultPoint;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
using Flags = FFSAddSourceFlags;

constexpr auto recursive = Flags::RECURSIVE;
constexpr std::int64_t some_time = 132'000'000'000'000'000;

class DirectorySource : public testing::Test {
protected:
    ~DirectorySource() override { platform::clear_faults(); }

    bool mount(Flags::ENUM flags = recursive) {
        source_.set_native_spelling((disk_.path() + "/").c_str());
        return source_.init(as_dir(disk_.path()), flags, nullptr);
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
    std::string read(const char* name) { return read_all(source_.open_read(as_path(name), {})); }
    bool has_dir(const char* dir) { return source_.dir_tree()->find(dir) != nullptr; }

    TempDirectory disk_;
    CWin32_dir source_{EFSSourceType::DIR};
};

TEST_F(DirectorySource, ShowsWhatItScannedAndTakesTheFirstFileWhoseDirectoryMatches) {
    ASSERT_TRUE(mount_with({"b/f", "a/b/f", "z/F", "only", "#hidden", "#off/file", "z/#no"}));
    EXPECT_THAT(all(), UnorderedElementsAre("b/f", "a/b/f", "z/f", "only"));
    EXPECT_EQ(read("z/f"), "z/F");
    EXPECT_FALSE(has_dir("#off"));
    const std::string root = std::filesystem::path(disk_.path()).filename().string();
    const std::pair<std::string, const char*> rows[] = {
        {"f", "a/b/f"},
        {"xb/f", "b/f"},  // character by character, not by components
        {"q/f", ""},
        {"#hidden", ""},
        {root + "/only", "only"},  // a file of the root is compared as if its directory were the root
        {"elsewhere/only", ""},
        {disk_.path() + "/b/f", "b/f"},  // a full path is the file there alone
        {"/elsewhere/b/f", ""},
        {disk_.path() + "x/b/f", ""},
    };
    for (const auto& [query, answer] : rows) EXPECT_EQ(found(query), answer) << query;
    fs::path out = as_path("z/f");
    source_.full_path(out, out);
    EXPECT_EQ(as_text(out), disk_.path() + "/z/f");
    source_.full_path(out, as_path("missing"));
    EXPECT_TRUE(out.Empty());
    ASSERT_TRUE(mount(Flags::NONE)) << "without those below";
    EXPECT_THAT(all(), ElementsAre("only"));
    EXPECT_EQ(source_.dir_tree()->first_child(), nullptr);
}

TEST_F(DirectorySource, EntersAWideTreeInOrderHoweverManyThreadsListIt) {
    for (int i = 100; i < 180; ++i) {
        for (const char* inner : {"/", "/a/", "/b/", "/b/c/"})
            disk_.write("d" + std::to_string(i) + inner + "same", "");
    }
    ASSERT_TRUE(mount());
    const std::vector<std::string> first = all();
    EXPECT_EQ(first.size(), 80u * 4);
    for (int round = 0; round < 5; ++round) {
        EXPECT_EQ(found("same"), "d100/same");
        EXPECT_EQ(found("c/same"), "d100/b/c/same");
        ASSERT_TRUE(mount());
        EXPECT_EQ(all(), first);
    }
}

TEST_F(DirectorySource, MountsByItsFlags) {
    disk_.write("file", "1");
    const std::tuple<std::string, Flags::ENUM, bool> rows[] = {
        {disk_ / "missing", recursive, true},  // a root that cannot be read is merely empty
        {disk_ / "missing", Flags::MUST_EXIST, false}, {disk_ / "file", Flags::MUST_EXIST, false},
        {disk_.path(), Flags::MUST_EXIST, true},       {disk_.path(), Flags::PROTECTED, true},
    };
    for (const auto& [path, flags, mounts] : rows) {
        EXPECT_EQ(source_.init(as_dir(path), flags, nullptr), mounts) << path << ' ' << flags;
        EXPECT_EQ(source_.is_protected(), flags == Flags::PROTECTED);
        if (mounts) EXPECT_TRUE(source_.path() == as_dir(path) && source_.flags() == flags);
        if (mounts) EXPECT_EQ(source_.writable(), flags == recursive);
    }
}

TEST_F(DirectorySource, KnowsNoPathThatIsTooLongForTheDisk) {
    const std::string part(100, 'p');
    const std::size_t room = 259 - disk_.path().size() - 102;
    const std::string longest = part + "/" + std::string(room, 'f');
    ASSERT_TRUE(mount_with({longest.c_str()}));
    EXPECT_EQ(all().size(), 1u);
    EXPECT_EQ(source_.unlisted_directories(), 0u);
    EXPECT_EQ(source_.create_write(as_path(longest + "f"), {}), nullptr);
    // The disk may hold longer ones; that they are not shown is told. So with a directory, whose listing is not kept.
    disk_.write(part + "/new", "1");
    const auto work = std::filesystem::current_path();
    std::filesystem::current_path(disk_ / part);
    std::filesystem::create_directory(std::string(room, 'd'));
    for (const std::string& name : {std::string(room + 1, 'f'), std::string(room, 'd') + "/g"}) write_file(name, "1");
    std::filesystem::current_path(work);
    source_.refresh_dir(part.c_str());
    EXPECT_TRUE(source_.exists(as_path("new"))) << "names that cannot be shown hide no other";
    fs::clear_error();
    source_.refresh();
    EXPECT_EQ(all().size(), 2u);
    EXPECT_EQ(source_.unlisted_directories(), 2u);
    EXPECT_EQ(fs::last_error().code, EFSError::INVALID_NAME);
}

std::vector<std::string> heard;

TEST_F(DirectorySource, FindsTextInDirectoriesLastBucketFirstAndTellsOfDuplicateNames) {
    ASSERT_TRUE(mount_with({"abc/x", "abc/y", "z/bc/x", "bc"}));
    heard.clear();
    fs::set_search_callback([](const char* dir, const char* name) { heard.push_back(std::string(dir) + "|" + name); });
    // "y" has the bucket before that of "x", and each hit goes to the front.
    EXPECT_THAT(test::take_names(source_.search_substring("bc")), ElementsAre("z/bc/x", "abc/x", "abc/y"));
    fs::set_search_callback(nullptr);
    EXPECT_THAT(heard, ElementsAre("abc/|y", "abc/|x", "z/bc/|x"));
    for (const char* none : {"bc/", "", static_cast<const char*>(nullptr)})  // the last slash takes no part
        EXPECT_THAT(test::take_names(source_.search_substring(none)), IsEmpty());
    const std::string root = disk_.path() + "/";
    ztl::vector<fs::string> lines{"kept"};
    source_.dump(lines, nullptr);
    EXPECT_THAT(lines, ElementsAre("kept", "0. " + root + "abc/x", "1. " + root + "z/bc/x"));
    source_.dump(lines, ".txt");
    EXPECT_EQ(lines.size(), 3u);
}

TEST_F(DirectorySource, ChangesNothingOutsideAndMakesNoNameThatNotEverySystemHolds) {
    ASSERT_TRUE(mount_with({"a/f"}));
    const std::string outside = disk_.path() + "x/f";
    fs::clear_error();
    for (const char* name : {"", "../x", "a/../../x", "what?", "d*r/x", "/elsewhere/a/f", outside.c_str()}) {
        const fs::path path(name, false);
        EXPECT_EQ(test::why(source_.create_write(path, {})), EFSError::INVALID_NAME) << name;
        EXPECT_EQ(test::why(source_.create_read_write(path, {})), EFSError::INVALID_NAME) << name;
        EXPECT_EQ(test::why(source_.rename_file(as_path("a/f"), path)), EFSError::INVALID_NAME) << name;
        EXPECT_EQ(test::why(source_.mkdir(as_dir(name, false))), EFSError::INVALID_NAME) << name;
    }
    for (const char* name : {"../a/f", "a/", outside.c_str()})
        EXPECT_FALSE(source_.rem_file(as_path(name))) << "not the file that the name ends like: " << name;
    for (const char* dir : {"", "/", "..", "../a"}) source_.rem_dir(as_dir(dir));
    EXPECT_THAT(all(), ElementsAre("a/f"));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(disk_.path()), {}), 1);
}

TEST_F(DirectorySource, AnswersTimesInLocalTimeAndMarksFilesAsInstalledOrNot) {
    ASSERT_TRUE(mount_with({"a", "b"}));
    const fs::path a = as_path("a"), b = as_path("b"), missing = as_path("missing");
    EXPECT_TRUE(source_.set_write_time(a, some_time) && !source_.set_write_time(missing, some_time));
    EXPECT_EQ(platform::get_attributes((disk_ / "a").c_str())->write_time, platform::local_to_utc(some_time));
    EXPECT_EQ(source_.is_installed(a), 2);
    source_.mark_installed_all(false);
    for (const fs::path& name : {b, missing}) source_.mark_installed(name, true);
    EXPECT_TRUE(source_.is_installed(a) == 1 && source_.is_installed(b) == 2);
}

TEST_F(DirectorySource, ChangesTheFileOfExactlyTheNameWhereThereIsOne) {
    ASSERT_TRUE(mount_with({"a/save", "save"}));
    source_.refresh_dir("");  // so that "a/save" is the first by the end
    ASSERT_EQ(found("save"), "a/save");
    const fs::path save = as_path("save");
    EXPECT_TRUE(write_all(source_.open_write(save, FFSOpenFlags::WHOLE_NAME), "root"));
    EXPECT_EQ(disk_.read("save"), "root");
    EXPECT_TRUE(source_.set_read_only(save, true));
    EXPECT_FALSE(source_.read_only(as_path("a/save")));
    EXPECT_TRUE(source_.set_read_only(save, false) && source_.rem_file(save));
    EXPECT_TRUE(disk_.exists("a/save"));
    EXPECT_FALSE(source_.exists_whole(save));
}

TEST_F(DirectorySource, RefreshesOneDirectoryOrAllAndForgetsATreeThatIsRemoved) {
    ASSERT_TRUE(mount_with({"A/old", "A/sub/f", "Del/f", "Del/Sub/g"}));
    source_.rem_dir(as_dir("del"));
    EXPECT_FALSE(disk_.exists("Del") || has_dir("del"));
    EXPECT_TRUE(has_dir("a"));
    EXPECT_THAT(all(), UnorderedElementsAre("a/old", "a/sub/f"));
    for (const char* name : {"A/old", "A/sub/f"}) std::filesystem::remove(disk_ / name);
    for (const char* name : {"A/new", "top"}) disk_.write(name, "1");
    for (const char* dir : {"unknown", "a"}) source_.refresh_dir(dir);
    EXPECT_THAT(all(), UnorderedElementsAre("a/new", "a/sub/f")) << "no directory below it is read again";
    EXPECT_EQ(read("a/new"), "1");
    source_.refresh_dir("");
    EXPECT_THAT(all(), UnorderedElementsAre("a/new", "a/sub/f", "top"));
    source_.refresh();
    EXPECT_THAT(all(), UnorderedElementsAre("a/new", "top"));
    source_.clear();
    EXPECT_THAT(all(), IsEmpty());
    EXPECT_TRUE(source_.dir_tree()->first_child() == nullptr && source_.path() == as_dir(disk_.path()));
}

TEST_F(DirectorySource, ADirectoryThatCannotBeListedIsToldAndKeepsItsNames) {
    for (const char* name : {"a/f", "b/f", "c/f"}) disk_.write(name, "1");
    for (const Failure failure : {Failure::NOT_FOUND, Failure::ACCESS_DENIED}) {
        const bool is_gone = failure == Failure::NOT_FOUND;  // which is not missed
        const std::uint32_t missed = is_gone ? 0 : 1;
        for (std::uint32_t nth = 1; nth <= 4; ++nth) {
            SCOPED_TRACE(nth);
            const std::size_t left = nth == 1 ? 0 : 2;
            fs::clear_error();
            platform::inject_fault(FaultPoint::LIST, nth, failure, false);
            ASSERT_TRUE(mount());
            EXPECT_TRUE(all().size() == left && source_.unlisted_directories() == missed);
            EXPECT_EQ(fs::last_error().code, is_gone ? EFSError::NONE : EFSError::ACCESS_DENIED);
            source_.refresh();
            EXPECT_TRUE(all().size() == 3 && source_.unlisted_directories() == 0);
            platform::inject_fault(FaultPoint::LIST, nth, failure, false);
            source_.refresh();
            EXPECT_TRUE(all().size() == (is_gone ? left : 3) && source_.unlisted_directories() == missed);
            EXPECT_TRUE(is_gone || has_dir("b"));
        }
    }
    platform::inject_fault(FaultPoint::LIST, 1, Failure::ACCESS_DENIED, true);
    source_.refresh_dir("a");
    EXPECT_THAT(all(), UnorderedElementsAre("a/f", "b/f", "c/f"));
    platform::inject_fault(FaultPoint::LIST, 2, Failure::OUT_OF_MEMORY, false);
    EXPECT_EQ(test::why(mount()), EFSError::OUT_OF_MEMORY) << "no mount is better than one without these names";
    EXPECT_EQ(all().size(), 3u);
}

class Fallback : public testing::Test {
protected:
    TempDirectory disk_;
    CWin32_fallback source_;
};

TEST_F(Fallback, AsksTheDiskInUniversalTimeAndKeepsNothingOfItsMountButTheFlags) {
    EXPECT_TRUE(source_.init(as_dir(disk_.path()), Flags::PROTECTED, nullptr));
    EXPECT_TRUE(source_.flags() == Flags::PROTECTED && source_.path().Empty());
    EXPECT_TRUE(source_.writable() && !source_.is_protected());
    EXPECT_TRUE(source_.exists(as_dir(disk_.path()))) << "a directory has attributes too";
    fs::path out;
    source_.root_path(out, as_path("never/there"));
    EXPECT_EQ(out, as_path("never/there"));
    EXPECT_TRUE(write_all(source_.open_append(as_path(disk_ / "made"), {}), "1")) << "open always";
    EXPECT_TRUE(source_.set_write_time(as_path(disk_ / "made"), some_time));
    const auto attributes = platform::get_attributes((disk_ / "made").c_str());
    EXPECT_TRUE(attributes && attributes->write_time == some_time && attributes->access_time == some_time);
    EXPECT_TRUE(source_.set_write_time(as_path(disk_ / "none"), some_time)) << "true even where the disk fails";
    EXPECT_FALSE(source_.set_write_time(fs::path(), some_time));
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
    for (const char* name : {"T/f", "T/Sub/g", "U/#kept", "U/gone", "out", "R/a", "R/b/c"}) disk_.write(name, "1");
    CountingFallback source;
    source.rem_dir(as_dir(disk_ / "t"));
    EXPECT_EQ(source.calls, 2) << "a derived class hears of each directory";
    for (const char* dir : {"u", "out"}) source.rem_dir(as_dir(disk_ / dir));
    for (const char* dir : {"", "/", "..", "../x/"}) source.rem_dir(as_dir(dir));
    EXPECT_FALSE(disk_.exists("T") || disk_.exists("U/gone"));
    EXPECT_TRUE(disk_.exists("U/#kept"));
    EXPECT_TRUE(disk_.exists("out")) << "a file cannot be enumerated";
    EXPECT_EQ(source.calls, 8) << "none of these went any further";
    for (const bool on : {true, false}) {
        for (const char* name : {"R/a", "R/b/c"}) source.set_read_only(as_path(disk_ / name), on);
        source.rem_dir(as_dir(disk_ / "r"));
        EXPECT_EQ(disk_.exists("R/a") && disk_.exists("R/b/c"), on);
        EXPECT_EQ(fs::last_error().path, disk_ / "r/a") << "the first that could not be removed";
    }
}

}  // namespace

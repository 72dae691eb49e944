#include <algorithm>
#include <filesystem>

#include "engine/kernel/text.h"
#include "engine/platform/error.h"
#include "tests/access/kit.h"
#include "tests/log/log_fixture.h"
#include "tests/support/pack_file.h"

namespace {

using testing::HasSubstr;
using Flags = FFSAddSourceFlags;

/// A folder of the test's own, the library's messages, and the file system stopped at the end.
class StartUp : public LogTest {
protected:
    StartUp() { Log::Settings::Instance().SetCategoryLevel("FileSystem", Log::ELevel::DEBG); }
    ~StartUp() override { fs::shutdown(); }

    /// What was said since the last question.
    static std::string logged() {
        std::string text;
        for (const Line& line : std::exchange(console_lines, {})) text += line.text;
        std::erase(text, '\r');  // lines end in both
        return text;
    }
    std::string path(const std::string& name) const { return home_ / name; }
    /// As the library answers it.
    std::string lower(const std::string& name) const {
        std::string text = path(name);
        std::ranges::transform(text, text.begin(), kernel::fold);
        return text;
    }
    bool start(bool use_fallback = false, const char** names = nullptr) const {
        return fs::init(path("Root").c_str(), whole_tree, path("cache").c_str(), use_fallback, false, names);
    }
    bool add(const std::string& name, Flags::ENUM flags = whole_tree) const {
        return fs::add_source(path(name).c_str(), flags);
    }

    TempDirectory home_;
};

TEST_F(StartUp, FailsForARootThatIsNotFullOrTooLong) {
    home_.write("Root/x", "");
    const std::string longest = "/" + std::string(258, 'n');  // the "/" at its end has no room
    for (const char* root : {"relative/dir", "", ".", longest.c_str(), static_cast<const char*>(nullptr)}) {
        EXPECT_FALSE(fs::init(root, Flags::NONE, "", false, false, nullptr) || fs::is_initialized());
        EXPECT_THAT(logged(), HasSubstr("Full path must be specified when calling fs::init()!\n"));
    }
    EXPECT_FALSE(fs::init(path("Root").c_str(), Flags::NONE, longest.c_str(), false, false, nullptr));
    EXPECT_EQ(mounted_sources().size(), 0u);
    EXPECT_TRUE(fs::init(path("Root").c_str(), Flags::NONE, "./a/..", false, false, nullptr));
    EXPECT_STREQ(fs::get_cache_dir(), "/");
}

TEST_F(StartUp, StopsOnceAndStartsAgainWithOneSlashAtTheEndOfTheRoot) {
    home_.write("Root/x.txt", "xx");
    fs::shutdown();
    for (const char* ending : {"", "/", "\\"}) {
        ASSERT_TRUE(fs::init((path("Root") + ending).c_str(), whole_tree, "", false, true, nullptr));
        EXPECT_EQ(fs::write_path(), lower("Root/"));
        EXPECT_STREQ(fs::search_dir("")->name(), "data");
        const fs::file_ptr file = fs::open_file("x.txt", EFSMode::READ, FFSOpenFlags::ASYNC);
        char byte = 0;
        EXPECT_EQ(fs::read(file.get(), &byte, 1), 1u);
        for (int i = 0; i < 2; ++i) fs::shutdown();
        EXPECT_FALSE(fs::is_initialized());
        EXPECT_EQ(load("x.txt"), "(none)");
        EXPECT_EQ(fs::read(file.get(), &byte, 1), ~std::uint64_t{0});
    }
    const std::string said = logged();
    for (const std::string& line : {std::string("FileSystem cache is force disabled (unused)."),
                                    "Initializing fs from '" + path("Root") + "' ...",
                                    "fs:init paths: '" + path("Root") + "/' incoming, '" + lower("Root") + "/' built"})
        EXPECT_THAT(said, HasSubstr(line + "\n"));
    EXPECT_TRUE(start() && start()) << "a second root";
    EXPECT_EQ(mounted_sources().size(), 2u);
}

TEST_F(StartUp, AsksTheNewestPackThenTheRootThenDirectoriesThenTheFallbackInTheCallersSpelling) {
    home_.write("Root/Dir/X.TXT", "root");
    home_.write("MORE/dir/x.txt", "more");
    home_.write("MORE/sub/Only.txt", "only");
    home_.write("outside.txt", "outside");
    ASSERT_TRUE(start(true) && add("MORE"));
    EXPECT_THAT(mounted_sources(), ElementsAre(lower("Root/"), lower("MORE/"), ""));
    EXPECT_EQ(load("dir/x.txt") + load("Sub/Only.txt") + load(path("outside.txt").c_str()), "rootonlyoutside");
    EXPECT_TRUE(fs::save_text_file("made", "Dir/New.txt") && fs::save_text_file("changed", "sub/only.txt"));
    EXPECT_EQ(home_.read("Root/Dir/New.txt") + home_.read("MORE/sub/Only.txt"), "madechanged");
    EXPECT_FALSE(fs::copy("dir/x.txt", path("Root/Dir/X.TXT").c_str(), 0)) << "onto itself";
    logged();
    EXPECT_FALSE(fs::copy("none.txt", "to.txt", 0) || fs::copy("dir/x.txt", "../up.txt", 0));
    EXPECT_THAT(logged(), AllOf(HasSubstr("ERROR [fs::copy] failed to open source file none.txt -> to.txt"),
                                HasSubstr("ERROR [fs::copy] failed to open destination file dir/x.txt -> ../up.txt")));
    EXPECT_THAT(fs::getOutLocationDebugHelper("Fresh.txt"), testing::StrCaseEq(path("Root/Fresh.txt")));
    std::filesystem::remove(path("Root/Dir/X.TXT"));  // between lookup and open, so to speak
    fs::clear_error();
    EXPECT_EQ(load("dir/x.txt"), "more");
    EXPECT_EQ(fs::last_error().code, NONE) << "what failed on the way to a success is forgotten";

    for (const std::string pack : {"base.pak", "patch.mPak"}) {
        ASSERT_TRUE(write_pack(path(pack), {{"dir/x.txt", pack}}) && add("MORE/../" + pack + "/"));
        EXPECT_EQ(load("dir/x.txt"), pack);
    }
    EXPECT_TRUE(fs::rem_source(path("patch.MPAK").c_str()));
    EXPECT_EQ(load("dir/x.txt"), "base.pak");
    logged();
    EXPECT_FALSE(fs::rem_source(path("none").c_str()) || fs::rem_source("MORE") || fs::rem_source(nullptr));
    EXPECT_EQ(logged(), "");
    EXPECT_TRUE(fs::rem_source((path("More") + "\\").c_str()));
    EXPECT_THAT(logged(), HasSubstr("Removing source '" + lower("MORE") + "/' of type TYPE_DIR(3).\n"));
    EXPECT_EQ(load("sub/only.txt"), "(none)");
}

TEST_F(StartUp, ShowsOnlyTheNamesOfAFilterAndTheParentWhenAskedTo) {
    home_.write("Root/dir/shown.txt", "shown");
    home_.write("Root/hidden.txt", "hidden");
    home_.write("outer/inner/sub/x.txt", "found");
    const char* names[] = {"dir/shown.txt", nullptr};
    ASSERT_TRUE(start(false, names) && add("outer/inner", whole_tree | Flags::MOUNT_PARENT));
    EXPECT_EQ(load("dir/shown.txt") + load("hidden.txt") + load("inner/sub/x.txt"), "shown(none)found");
    EXPECT_TRUE(fs::rem_source(path("outer/inner").c_str()));
    EXPECT_EQ(fs::search_dir("inner"), nullptr);
}

TEST_F(StartUp, RefusesSourcesWithTheReason) {
    home_.write("Root/x", "");
    home_.write("more/shut/f", "");
    home_.write("broken.pak", "no pack");
    ASSERT_TRUE(start());
    EXPECT_EQ(why(fs::add_source("more")), INVALID_NAME);
    EXPECT_THAT(logged(), HasSubstr("Cannot add source 'more'. It is not full path.\n"));
    EXPECT_TRUE(add("more", Flags::NONE));
    EXPECT_THAT(logged(), HasSubstr("Adding source '" + lower("more") + "/' of type TYPE_DIR(3) with flags 0x00.\n"));
    EXPECT_EQ(why(add("MORE/")), ALREADY_EXISTS);
    EXPECT_THAT(logged(), HasSubstr("Source from path '" + path("MORE/") + "' already added.\n"));
    EXPECT_FALSE(add("none", Flags::MUST_EXIST));
    for (const std::string& name :
         {path("broken.pak"), path("missing.PAK"), std::string(), "/" + std::string(300, 'n')}) {
        fs::clear_error();
        EXPECT_FALSE(fs::add_source(name.c_str()));
        EXPECT_NE(fs::last_error().code, NONE);
    }
    EXPECT_FALSE(fs::add_source(static_cast<const char*>(nullptr)));
    platform::inject_fault(platform::FaultPoint::LIST, 2, platform::Failure::ACCESS_DENIED, false);
    EXPECT_TRUE(add("more", whole_tree | Flags::ALLOW_DUPLICATE)) << "without the directory that was not listed";
    platform::clear_faults();
    EXPECT_EQ(fs::last_error().code, ACCESS_DENIED);
    EXPECT_THAT(logged(), HasSubstr("1 directories of source '" + lower("more") + "/' could not be listed"));
}

}  // namespace

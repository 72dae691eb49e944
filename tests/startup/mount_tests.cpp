#include <engine/filesystem.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "engine/kernel/text.h"
#include "engine/platform/error.h"
#include "tests/log/log_fixture.h"
#include "tests/support/mounted_root.h"
#include "tests/support/pack_file.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using Flags = FFSAddSourceFlags;

/// A folder of the test's own, the library's messages, and the file system stopped at the end.
class StartUp : public LogTest {
protected:
    StartUp() { Log::Settings::Instance().SetCategoryLevel("FileSystem", Log::ELevel::DEBG); }
    ~StartUp() override {
        fs::shutdown();
        platform::clear_faults();
    }

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
    static std::string read(const std::string& name) {
        fs::string text = "(none)";
        fs::load_text_file(text, name.c_str());
        return text;
    }
    bool start(bool use_fallback = false, const char** names = nullptr) const {
        return fs::init(path("Root").c_str(), whole_tree, path("cache").c_str(), use_fallback, false, names);
    }
    bool add(const std::string& name, Flags::ENUM flags = whole_tree) const {
        return fs::add_source(path(name).c_str(), flags);
    }
    static std::vector<std::string> sources() {
        ztl::vector<SFsSourceInfo> infos;
        fs::get_sources(infos);
        std::vector<std::string> out;
        for (const SFsSourceInfo& info : infos) out.push_back(info.path_name + info.file_name);
        return out;
    }

    TempDirectory home_;
};

TEST_F(StartUp, FailsForARootThatIsNotFullOrTooLong) {
    home_.write("Root/x", "");
    const std::string longest = "/" + std::string(258, 'n');  // the "/" at its end has no room
    const std::string too_long = longest + "n";
    for (const char* root :
         {"relative/dir", "", ".", longest.c_str(), too_long.c_str(), static_cast<const char*>(nullptr)}) {
        EXPECT_FALSE(fs::init(root, Flags::NONE, "", false, false, nullptr));
        EXPECT_FALSE(fs::is_initialized());
        EXPECT_THAT(logged(), HasSubstr("Full path must be specified when calling fs::init()!\n"));
        EXPECT_EQ(sources().size(), 0u);
    }
    EXPECT_FALSE(fs::init(path("Root").c_str(), Flags::NONE, longest.c_str(), false, false, nullptr));
    EXPECT_TRUE(fs::init(path("Root").c_str(), Flags::NONE, "./a/..", false, false, nullptr));
    EXPECT_STREQ(fs::get_cache_dir(), "/");
}

TEST_F(StartUp, StopsOnceAndStartsAgainWithOneSlashAtTheEndOfTheRoot) {
    home_.write("Root/x.txt", "xx");
    SFsFile* file = nullptr;
    char byte = 0;
    fs::shutdown();
    for (const char* ending : {"", "/", "\\"}) {
        ASSERT_TRUE(fs::init((path("Root") + ending).c_str(), whole_tree, "", false, true, nullptr));
        EXPECT_EQ(fs::write_path(), lower("Root/"));
        EXPECT_STREQ(fs::search_dir("")->name(), "data");
        EXPECT_EQ(read("x.txt"), "xx");
        fs::close(file);
        file = fs::open("x.txt", EFSMode::READ, FFSOpenFlags::ASYNC);
        EXPECT_EQ(fs::read(file, &byte, 1), 1u);
        fs::shutdown();
        EXPECT_FALSE(fs::is_initialized());
        EXPECT_EQ(read("x.txt"), "(none)");
        EXPECT_EQ(fs::read(file, &byte, 1), ~std::uint64_t{0});
        fs::shutdown();
    }
    fs::close(file);
    const std::string said = logged();
    for (const std::string& line : {std::string("FileSystem cache is force disabled (unused)."),
                                    "Initializing fs from '" + path("Root") + "' ...",
                                    "fs:init paths: '" + path("Root") + "/' incoming, '" + lower("Root") + "/' built"})
        EXPECT_THAT(said, HasSubstr(line + "\n"));
    EXPECT_TRUE(start() && start()) << "a second root";
    EXPECT_EQ(sources().size(), 2u);
}

TEST_F(StartUp, AsksTheNewestPackThenTheRootThenDirectoriesThenTheFallbackInTheCallersSpelling) {
    home_.write("Root/Dir/X.TXT", "root");
    home_.write("Root/gone.txt", "root");
    home_.write("MORE/dir/x.txt", "more");
    home_.write("MORE/sub/Only.txt", "only");
    home_.write("MORE/gone.txt", "more");
    home_.write("outside.txt", "outside");
    ASSERT_TRUE(start(true) && add("MORE"));
    EXPECT_THAT(sources(), ElementsAre(lower("Root/"), lower("MORE/"), ""));
    EXPECT_EQ(read("dir/x.txt") + read("Sub/Only.txt") + read(path("outside.txt")), "rootonlyoutside");
    EXPECT_EQ(fs::full_path("sub/only.txt"), lower("MORE/sub/only.txt"));
    EXPECT_TRUE(fs::save_text_file("made", "Dir/New.txt") && fs::save_text_file("changed", "sub/only.txt"));
    EXPECT_EQ(home_.read("Root/Dir/New.txt") + home_.read("MORE/sub/Only.txt"), "madechanged");
    EXPECT_FALSE(fs::copy("dir/x.txt", path("Root/Dir/X.TXT").c_str(), 0)) << "onto itself";
    EXPECT_THAT(fs::getOutLocationDebugHelper("Fresh.txt"), testing::StrCaseEq(path("Root/Fresh.txt")));
    std::filesystem::remove(path("Root/gone.txt"));  // between lookup and open, so to speak
    fs::clear_error();
    EXPECT_EQ(read("gone.txt"), "more");
    EXPECT_EQ(fs::last_error().code, EFSError::NONE) << "what failed on the way to a success is forgotten";

    for (const std::string pack : {"base.pak", "patch.mPak"}) {
        ASSERT_TRUE(write_pack(path(pack), {{"dir/x.txt", pack}}) && add("MORE/../" + pack + "/"));
        EXPECT_EQ(read("dir/x.txt"), pack);
    }
    EXPECT_TRUE(fs::rem_source(path("patch.MPAK").c_str()));
    EXPECT_EQ(read("dir/x.txt"), "base.pak");

    logged();
    EXPECT_FALSE(fs::rem_source(path("none").c_str()) || fs::rem_source("MORE") || fs::rem_source(nullptr));
    EXPECT_EQ(logged(), "");
    EXPECT_NE(fs::search_dir("sub"), nullptr);
    EXPECT_TRUE(fs::rem_source((path("More") + "\\").c_str()));
    EXPECT_THAT(logged(), HasSubstr("Removing source '" + lower("MORE") + "/' of type TYPE_DIR(3).\n"));
    EXPECT_EQ(fs::search_dir("sub"), nullptr);
    EXPECT_EQ(read("gone.txt"), "(none)");
}

TEST_F(StartUp, ShowsOnlyTheNamesOfAFilterAndTheParentWhenAskedTo) {
    home_.write("Root/dir/shown.txt", "shown");
    home_.write("Root/hidden.txt", "hidden");
    home_.write("outer/inner/sub/x.txt", "found");
    const char* names[] = {"dir/shown.txt", nullptr};
    ASSERT_TRUE(start(false, names) && add("outer/inner", whole_tree | Flags::MOUNT_PARENT));
    EXPECT_EQ(read("dir/shown.txt") + read("hidden.txt") + read("inner/sub/x.txt"), "shown(none)found");
    EXPECT_TRUE(fs::rem_source(path("outer/inner").c_str()));
    EXPECT_EQ(fs::search_dir("inner"), nullptr);
}

TEST_F(StartUp, RefusesSourcesWithTheReason) {
    home_.write("Root/x", "");
    home_.write("more/shut/f", "1");
    home_.write("broken.pak", "no pack");
    ASSERT_TRUE(start());
    EXPECT_FALSE(fs::add_source("more"));
    EXPECT_THAT(logged(), HasSubstr("Cannot add source 'more'. It is not full path.\n"));
    EXPECT_EQ(fs::last_error().code, EFSError::INVALID_NAME);
    EXPECT_TRUE(add("more", Flags::NONE));
    EXPECT_THAT(logged(), HasSubstr("Adding source '" + lower("more") + "/' of type TYPE_DIR(3) with flags 0x00.\n"));
    EXPECT_FALSE(add("MORE/"));
    EXPECT_THAT(logged(), HasSubstr("Source from path '" + path("MORE/") + "' already added.\n"));
    EXPECT_EQ(fs::last_error().code, EFSError::ALREADY_EXISTS);
    EXPECT_FALSE(add("none", Flags::MUST_EXIST));
    for (const std::string& name :
         {path("broken.pak"), path("missing.PAK"), std::string(), "/" + std::string(300, 'n')}) {
        fs::clear_error();
        EXPECT_FALSE(fs::add_source(name.c_str()));
        EXPECT_NE(fs::last_error().code, EFSError::NONE);
    }
    EXPECT_FALSE(fs::add_source(static_cast<const char*>(nullptr)));
    fs::clear_error();
    platform::inject_fault(platform::FaultPoint::LIST, 2, platform::Failure::ACCESS_DENIED, false);
    EXPECT_TRUE(add("more", whole_tree | Flags::ALLOW_DUPLICATE)) << "without the directory that was not listed";
    EXPECT_EQ(fs::last_error().code, EFSError::ACCESS_DENIED);
    EXPECT_THAT(logged(), HasSubstr("1 directories of source '" + lower("more") + "/' could not be listed"));
    ztl::vector<SFsSourceInfo> infos;
    fs::get_sources(infos);
    ASSERT_EQ(infos.size(), 3u);
    EXPECT_EQ(infos[1].unlisted_directories + infos[2].unlisted_directories, 1u);
    fs::refresh();
    EXPECT_EQ(read("shut/f"), "1");
}

}  // namespace

#include <engine/filesystem.h>

#include <gmock/gmock.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "engine/filesystem/startup/prepared_path.h"
#include "engine/kernel/text.h"
#include "engine/platform/faults.h"
#include "tests/support/child_process.h"
#include "tests/support/mounted_root.h"

namespace {

namespace disk = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using Flags = FFSAddSourceFlags;

std::string logged;
void note_line(Log::ELevel::TYPE, const char*, const char* text) {
    logged += text;
    std::erase(logged, '\r');  // lines end in both
}

/// A fresh folder of the test's own, and the file system stopped at the end.
class StartUp : public testing::Test {
protected:
    StartUp() {
        logged.clear();
        LogSetPrintCallback(note_line);
        _CLFilterSetMode(CLFilterMode::ALL_CONSOLE);  // or the first message would open a log file below the root
        Log::Settings::Instance().SetCategoryLevel("FileSystem", Log::ELevel::DEBG);
    }
    ~StartUp() override {
        fs::shutdown();
        platform::clear_faults();
        LogSetPrintCallback(nullptr);
        _CLFilterSetMode(CLFilterMode::NORMAL);
        Log::Settings::Instance().SetCategoryLevel("FileSystem", Log::ELevel::NONE);
    }

    std::string path(const std::string& name) const { return home_ / name; }
    static std::string lower(std::string text) {
        for (char& c : text) c = kernel::fold(c);
        return text;
    }
    void put(const std::string& name, const std::string& text) const { home_.write(name, text); }
    std::string held_on_disk(const std::string& name) const { return home_.read(name); }
    static std::string read(const std::string& name) {
        fs::string text = "(none)";
        fs::load_text_file(text, name.c_str());
        return text;
    }
    bool start(const std::string& root, Flags::ENUM flags = whole_tree, bool fallback = false) const {
        return fs::init(path(root).c_str(), flags, path("cache").c_str(), fallback, false, nullptr);
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

TEST(PreparedPath, DropsOneSeparatorAndNormalises) {
    const struct {
        const char* in;
        const char* out;
        bool pack;
    } rows[] = {
        {"/Data/Maps/", "/data/maps", false},
        {"/data\\\\", "/data/", false},
        {"/", "/", false},
        {"", "", false},
        {"/a/../B.PAK", "/b.pak", true},
        {"/x.mPak/", "/x.mpak", true},
        {"/a.pak/b", "/a.pak/b", false},
        {"/x.zip", "/x.zip", false},
        {nullptr, "", false},
    };
    for (const auto& row : rows) {
        const fs::PreparedPath prepared(row.in);
        EXPECT_STREQ(prepared.c_str(), row.out);
        EXPECT_EQ(prepared.names_pack(), row.pack) << prepared.c_str();
    }
    const std::string longest = "/" + std::string(258, 'n');
    fs::PreparedPath as_file(longest.c_str());
    EXPECT_STREQ(as_file.c_str(), longest.c_str());
    EXPECT_FALSE(as_file.is_too_long());
    as_file.append_slash();  // as a directory it is
    EXPECT_TRUE(as_file.is_too_long());
    const fs::PreparedPath too_long((longest + "n").c_str());
    EXPECT_TRUE(too_long.is_empty() && too_long.is_too_long());
    EXPECT_STREQ(fs::PreparedPath("/a/b.pak").as_source_path().FileName(), "b.pak");
    EXPECT_STREQ(fs::PreparedPath("/a/b.c").as_source_path().PathName(), "/a/b.c/");
}

TEST_F(StartUp, RefusesARootThatIsNotFull) {
    const std::string too_long = "/" + std::string(300, 'n');
    const std::string one_too_long = "/" + std::string(258, 'n');  // the "/" at its end has no room
    for (const char* root :
         {"relative/dir", "", ".", too_long.c_str(), one_too_long.c_str(), static_cast<const char*>(nullptr)}) {
        logged.clear();
        EXPECT_FALSE(fs::init(root, Flags::NONE, "", false, false, nullptr));
        EXPECT_FALSE(fs::is_initialized());
        EXPECT_THAT(logged, HasSubstr("Full path must be specified when calling fs::init()!\n"));
        EXPECT_THAT(sources(), testing::SizeIs(0));
    }
    put("root/x", "");
    EXPECT_FALSE(fs::init(path("root").c_str(), Flags::NONE, too_long.c_str(), false, false, nullptr));
    EXPECT_TRUE(fs::init(path("root").c_str(), Flags::NONE, "./a/..", false, false, nullptr));
    EXPECT_STREQ(fs::get_cache_dir(), "/");
}

TEST_F(StartUp, BuildsTheRootWithOneSlashAtItsEnd) {
    put("root/x.txt", "x");
    for (const char* ending : {"", "/", "\\"}) {
        ASSERT_TRUE(fs::init((path("root") + ending).c_str(), whole_tree, "", false, true, nullptr));
        EXPECT_TRUE(fs::is_initialized());
        EXPECT_EQ(fs::write_path(), lower(path("root")) + "/");
        EXPECT_STREQ(fs::get_cache_dir(), "/");
        EXPECT_STREQ(fs::search_dir("")->name(), "data");
        EXPECT_EQ(read("x.txt"), "x");
        fs::shutdown();
        EXPECT_FALSE(fs::is_initialized());
        EXPECT_EQ(read("x.txt"), "(none)");
    }
    EXPECT_THAT(logged, HasSubstr("FileSystem cache is force disabled (unused).\n"));
    EXPECT_THAT(logged, HasSubstr("Initializing fs from '" + path("root") + "' ...\n"));
    EXPECT_THAT(logged,
                HasSubstr("fs:init paths: '" + path("root") + "/' incoming, '" + lower(path("root")) + "/' built\n"));
}

TEST_F(StartUp, AsksTheRootThenDirectoriesThenTheFallback) {
    put("root/x.txt", "root");
    put("more/x.txt", "more");
    put("more/sub/only.txt", "only");
    put("outside.txt", "outside");
    ASSERT_TRUE(start("root", whole_tree, true));
    ASSERT_TRUE(fs::add_source(path("more").c_str(), whole_tree));
    EXPECT_THAT(sources(), ElementsAre(lower(path("root")) + "/", lower(path("more")) + "/", ""));
    EXPECT_EQ(read("X.txt"), "root");
    EXPECT_EQ(read("Sub/Only.txt"), "only");
    EXPECT_EQ(read(path("outside.txt")), "outside");
    EXPECT_NE(fs::search_dir("sub"), nullptr);
    EXPECT_TRUE(fs::save_text_file("made", "New/Made.txt"));
    EXPECT_EQ(held_on_disk("root/New/Made.txt"), "made");
    EXPECT_TRUE(fs::save_text_file("changed", "sub/only.txt"));
    EXPECT_EQ(held_on_disk("more/sub/only.txt"), "changed");
    EXPECT_EQ(fs::full_path("sub/only.txt"), lower(path("more/sub/only.txt")));
    EXPECT_THAT(fs::getOutLocationDebugHelper("Fresh.txt"), testing::StrCaseEq(path("root/Fresh.txt")));
}

TEST_F(StartUp, KeepsTheCallersSpellingForTheDisk) {
    put("Root/Dir/File.TXT", "found");
    put("MORE/Other.txt", "other");
    ASSERT_TRUE(start("Root"));
    ASSERT_TRUE(fs::add_source(path("MORE").c_str(), whole_tree));
    EXPECT_EQ(read("dir/file.txt"), "found");
    EXPECT_EQ(read("other.txt"), "other");
    EXPECT_TRUE(fs::save_text_file("x", "Dir/New.txt"));
    EXPECT_EQ(held_on_disk("Root/Dir/New.txt"), "x");
    EXPECT_TRUE(fs::rem_source(path("More/").c_str()));
    EXPECT_EQ(read("other.txt"), "(none)");
}

TEST_F(StartUp, ShowsOnlyTheNamesOfAFilter) {
    put("root/dir/shown.txt", "shown");
    put("root/hidden.txt", "hidden");
    const char* names[] = {"dir/shown.txt", nullptr};
    ASSERT_TRUE(fs::init(path("root").c_str(), whole_tree, "", false, false, names));
    EXPECT_EQ(read("dir/shown.txt"), "shown");
    EXPECT_EQ(read("hidden.txt"), "(none)");
}

TEST_F(StartUp, IndexesTheParentOfADirectoryMountedWithIt) {
    put("root/x", "");
    put("outer/inner/sub/x.txt", "found");
    ASSERT_TRUE(start("root"));
    ASSERT_TRUE(fs::add_source(path("outer/inner").c_str(), whole_tree | Flags::MOUNT_PARENT));
    EXPECT_EQ(read("inner/sub/x.txt"), "found");
    EXPECT_NE(fs::search_dir("inner/sub"), nullptr);
    EXPECT_TRUE(fs::rem_source(path("outer/inner").c_str()));
    EXPECT_EQ(fs::search_dir("inner"), nullptr);
}

TEST_F(StartUp, RefusesSourcesWithTheReason) {
    put("root/x", "");
    put("more/x", "");
    put("broken.pak", "no pack");
    ASSERT_TRUE(start("root"));
    logged.clear();
    EXPECT_FALSE(fs::add_source("more"));
    EXPECT_THAT(logged, HasSubstr("Cannot add source 'more'. It is not full path.\n"));
    EXPECT_EQ(fs::last_error().code, EFSError::INVALID_NAME);
    EXPECT_TRUE(fs::add_source(path("more").c_str()));
    EXPECT_THAT(logged,
                HasSubstr("Adding source '" + lower(path("more")) + "/' of type TYPE_DIR(3) with flags 0x00.\n"));
    EXPECT_FALSE(fs::add_source(path("MORE/").c_str()));
    EXPECT_THAT(logged, HasSubstr("Source from path '" + path("MORE/") + "' already added.\n"));
    EXPECT_EQ(fs::last_error().code, EFSError::ALREADY_EXISTS);
    EXPECT_TRUE(fs::add_source(path("more").c_str(), Flags::ALLOW_DUPLICATE));
    EXPECT_FALSE(fs::add_source(path("none").c_str(), Flags::MUST_EXIST));
    fs::clear_error();
    EXPECT_FALSE(fs::add_source(path("broken.pak").c_str()));
    EXPECT_FALSE(fs::add_source(path("missing.PAK").c_str()));
    EXPECT_NE(fs::last_error().code, EFSError::NONE);
    EXPECT_FALSE(fs::add_source(static_cast<const char*>(nullptr)));
    EXPECT_FALSE(fs::add_source(("/" + std::string(300, 'n')).c_str()));
    EXPECT_EQ(sources().size(), 3u);
}

TEST_F(StartUp, RemovesASourceByItsPath) {
    put("root/x", "");
    put("more/dir/x.txt", "more");
    ASSERT_TRUE(start("root", Flags::NONE));
    ASSERT_TRUE(fs::add_source(path("more").c_str(), whole_tree));
    EXPECT_TRUE(fs::source_exists((path("MORE") + "/").c_str()));
    logged.clear();
    EXPECT_FALSE(fs::rem_source(path("none").c_str()));
    EXPECT_FALSE(fs::rem_source("more"));
    EXPECT_FALSE(fs::rem_source(static_cast<const char*>(nullptr)));
    EXPECT_EQ(logged, "");
    EXPECT_TRUE(fs::rem_source((path("More") + "\\").c_str()));
    EXPECT_THAT(logged, HasSubstr("Removing source '" + lower(path("more")) + "/' of type TYPE_DIR(3).\n"));
    EXPECT_FALSE(fs::source_exists((path("more") + "/").c_str()));
    EXPECT_EQ(fs::search_dir("dir"), nullptr);
    EXPECT_STREQ(fs::search_dir("")->name(), "");
}

TEST_F(StartUp, StopsOnceAndStartsAgain) {
    put("root/x.txt", "two");
    fs::shutdown();
    ASSERT_TRUE(start("root"));
    ASSERT_TRUE(start("root"));  // a second root
    EXPECT_EQ(sources().size(), 2u);
    SFsFile* const file = fs::open("x.txt", EFSMode::READ, FFSOpenFlags::ASYNC);
    ASSERT_NE(file, nullptr);
    char byte = 0;
    EXPECT_EQ(fs::read(file, &byte, 1), 1u);
    fs::shutdown();
    fs::shutdown();
    EXPECT_EQ(sources().size(), 0u);
    EXPECT_EQ(fs::read(file, &byte, 1), ~std::uint64_t{0});
    fs::close(file);
    EXPECT_TRUE(start("root"));
}

TEST_F(StartUp, ManagesFilesOnTheDisk) {
    put("root/Dir/Old.txt", "old");
    put("root/Dir/Taken.txt", "taken");
    ASSERT_TRUE(start("root", whole_tree, true));
    EXPECT_FALSE(fs::copy("dir/old.txt", "DIR/OLD.txt", 0));
    EXPECT_FALSE(fs::copy("dir/old.txt", path("root/Dir/Old.txt").c_str(), 0));
    EXPECT_TRUE(fs::copy("dir/old.txt", "Copies/One.txt", 1));
    EXPECT_EQ(held_on_disk("root/Copies/One.txt") + held_on_disk("root/Dir/Old.txt"), "oldold");
    EXPECT_FALSE(fs::rename("dir/old.txt", "dir/taken.txt"));
    EXPECT_TRUE(fs::rename("dir/old.txt", "old.txt"));  // which found "dir/old.txt" by its end until now
    EXPECT_TRUE(fs::rename("old.txt", "Dir/Sub/New.txt"));
    EXPECT_EQ(held_on_disk("root/Dir/Sub/New.txt"), "old");
    EXPECT_FALSE(fs::exists("dir/old.txt"));
    EXPECT_TRUE(fs::mkdir("Made/Deep"));
    EXPECT_TRUE(home_.exists("root/Made/Deep"));
    EXPECT_TRUE(fs::mkdir_cache("logs"));
    EXPECT_TRUE(fs::does_cache_dir_exist("logs"));
    fs::create_backup_copy("dir/taken.txt");
    // Under either spelling; a disk that knows no case has both.
    EXPECT_THAT((std::vector{held_on_disk("root/Dir/taken.txt.bak"), held_on_disk("root/Dir/Taken.txt.bak")}),
                testing::Contains("taken"));
    fs::rem_dir("Dir");
    EXPECT_FALSE(home_.exists("root/Dir"));
    EXPECT_FALSE(fs::exists("dir/sub/new.txt"));
    EXPECT_EQ(fs::search_dir("dir"), nullptr);
}

TEST_F(StartUp, APackOverTheRootAndAPatchOverItEachAnswerFirst) {
    for (const char* pack : {"base", "patch"}) {
        fs::pack_writer writer;
        ASSERT_TRUE(writer.open(path(std::string(pack) + ".pak").c_str()));
        ASSERT_TRUE(writer.add("dir/both.txt", pack, std::strlen(pack), 6, 0));
        ASSERT_TRUE(writer.add((std::string("dir/") + pack + ".txt").c_str(), pack, std::strlen(pack), 6, 0));
        ASSERT_TRUE(writer.finish());
    }
    put("root/dir/both.txt", "root");
    ASSERT_TRUE(start("root"));
    EXPECT_EQ(read("dir/both.txt"), "root");
    for (const std::string pack : {"base", "patch"}) {
        ASSERT_TRUE(fs::add_source(path(pack + ".pak").c_str(), whole_tree));
        EXPECT_EQ(read("dir/both.txt") + read("dir/" + pack + ".txt"), pack + pack);
    }
    EXPECT_EQ(read("dir/base.txt"), "base");
    EXPECT_TRUE(fs::rem_source(path("patch.pak").c_str()));
    EXPECT_EQ(read("dir/both.txt"), "base");
}

TEST_F(StartUp, AMountThatMissesADirectorySaysSo) {
    put("root/x", "");
    put("more/shut/f", "1");
    ASSERT_TRUE(start("root"));
    fs::clear_error();
    platform::inject_fault(platform::FaultPoint::LIST, 2, platform::Failure::ACCESS_DENIED, false);
    EXPECT_TRUE(fs::add_source(path("more").c_str(), whole_tree));
    EXPECT_EQ(fs::last_error().code, EFSError::ACCESS_DENIED);
    EXPECT_THAT(logged, HasSubstr("1 directories of source '" + lower(path("more")) + "/' could not be listed"));
    ztl::vector<SFsSourceInfo> infos;
    fs::get_sources(infos);
    EXPECT_EQ(infos.back().unlisted_directories, 1u);
    fs::refresh();
    EXPECT_EQ(read("shut/f"), "1");
}

TEST_F(StartUp, NewFilesAreMadeInTheFirstSourceWhateverModeAndFlagsSay) {
    put("root/x", "");
    ASSERT_TRUE(start("root", whole_tree, true));
    using Open = FFSOpenFlags;
    const struct {
        EFSMode::TYPE mode;
        Open::FLAGS flags;
    } rows[] = {{EFSMode::WRITE, Open::NONE},        {EFSMode::WRITE, Open::CREATE},
                {EFSMode::APPEND, Open::NONE},       {EFSMode::READ_WRITE, Open::CREATE},
                {EFSMode::READ_WRITE, Open::NONE},   {EFSMode::WRITE, Open::GZIP_LEVEL1},
                {EFSMode::WRITE, Open::GZIP_LEVEL5}, {EFSMode::WRITE, Open::GZIP_LEVEL9}};
    for (const auto& row : rows) {
        const std::string name = "made_" + std::to_string(row.mode) + "_" + std::to_string(row.flags);
        fs::close(fs::open(name.c_str(), row.mode, row.flags));
        EXPECT_TRUE(home_.exists("root/" + name)) << name;
        EXPECT_FALSE(disk::exists(name)) << name;
    }
    put("outside/old", "old");
    SFsFile* const old = fs::open(path("outside/old").c_str(), EFSMode::APPEND);
    EXPECT_EQ(fs::write(old, "er", 2), 2u);
    fs::close(old);
    EXPECT_EQ(held_on_disk("outside/old"), "older");
    fs::close(fs::open(path("outside/new").c_str(), EFSMode::WRITE, Open::CREATE));
    EXPECT_TRUE(home_.exists("outside/new"));
}

TEST_F(StartUp, WhatFailedOnTheWayToASuccessIsForgotten) {
    put("root/x.txt", "root");
    put("more/x.txt", "more");
    ASSERT_TRUE(start("root", whole_tree, true));
    ASSERT_TRUE(fs::add_source(path("more").c_str(), whole_tree));
    disk::remove(path("root/x.txt"));  // between look-up and open, so to speak
    fs::clear_error();
    EXPECT_EQ(read("x.txt"), "more");
    EXPECT_TRUE(fs::save_text_file("made", "no such directory here/made.txt"));  // the fallback was asked first
    EXPECT_EQ(fs::last_error().code, EFSError::NONE);
    EXPECT_EQ(read("missing.txt"), "(none)");
    const fs::string text = fs::last_error().text;
    EXPECT_EQ(read("x.txt"), "more");
    EXPECT_EQ(fs::last_error().code, EFSError::NOT_FOUND);
    EXPECT_EQ(fs::last_error().text, text);
}

TEST_F(StartUp, TwoThreadsMountAndUnmountWhileTwentyRead) {
    put("root/dir/base.txt", "base");
    put("more0/dir/x0.txt", "0");
    put("more1/dir/x1.txt", "1");
    ASSERT_TRUE(start("root", whole_tree, true));
    Log::Settings::Instance().SetCategoryLevel("FileSystem", Log::ELevel::NONE);
    LogSetPrintCallback(nullptr);
    std::atomic<bool> stop{false};
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int w = 0; w < 2; ++w) {
        threads.emplace_back([&, w] {
            const std::string root = path("more" + std::to_string(w));
            const std::string file = "dir/x" + std::to_string(w) + ".txt";
            for (int i = 0; i < 100; ++i) {
                if (!fs::add_source(root.c_str(), whole_tree) || read(file) != std::to_string(w)) ++wrong;
                if (!fs::rem_source(root.c_str())) ++wrong;
            }
        });
    }
    for (int i = 0; i < 20; ++i) {
        threads.emplace_back([&] {
            while (!stop) {
                if (read("dir/base.txt") != "base" || !fs::exists("dir/base.txt")) ++wrong;
                fs::exists("dir/x0.txt");
                fs::search_dir("dir");
                fs::free_names(fs::search("dir", nullptr, true, false));
            }
        });
    }
    threads[0].join();
    threads[1].join();
    stop = true;
    for (std::size_t i = 2; i < threads.size(); ++i) threads[i].join();
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(sources().size(), 2u);
}

#if !defined(_WIN32)
TEST_F(StartUp, DISABLED_MountARootThatIsNotThere) {
    fs::init((child_root() + "/none").c_str(), Flags::MUST_EXIST, "", false, false, nullptr);
}
TEST_F(StartUp, ARootThatDoesNotMountEndsTheProcess) {
    const ChildResult result = run_child("StartUp.DISABLED_MountARootThatIsNotThere", path(""));
    EXPECT_EQ(result.exit_code, 255) << result.output;
}
#endif

}  // namespace

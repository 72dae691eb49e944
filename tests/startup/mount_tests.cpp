#include <engine/filesystem.h>

#include <gmock/gmock.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "engine/filesystem/startup/prepared_path.h"
#include "engine/platform/faults.h"

namespace {

namespace disk = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using Flags = FFSAddSourceFlags;

constexpr Flags::ENUM whole_tree = Flags::RECURSIVE | Flags::INDEX_NAMES;

std::string logged;
void note_line(Log::ELevel::TYPE, const char*, const char* text) {
    logged += text;
    std::erase(logged, '\r');  // lines end in both
}

/// A fresh folder below the test's own, and the file system stopped at the end.
class StartUp : public testing::Test {
protected:
    void SetUp() override {
        home_ = disk::current_path() / "startup";
        disk::remove_all(home_);
        logged.clear();
        LogSetPrintCallback(note_line);
        _CLFilterSetMode(CLFilterMode::ALL_CONSOLE);  // or the first message would open a log file below the root
        Log::Settings::Instance().SetCategoryLevel("FileSystem", Log::ELevel::DEBG);
    }
    void TearDown() override {
        fs::shutdown();
        LogSetPrintCallback(nullptr);
        _CLFilterSetMode(CLFilterMode::NORMAL);
        Log::Settings::Instance().SetCategoryLevel("FileSystem", Log::ELevel::NONE);
        disk::remove_all(home_);
    }

    std::string path(const std::string& name) const { return (home_ / name).generic_string(); }
    static std::string lower(std::string text) {
        for (char& c : text) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
        return text;
    }
    void put(const std::string& name, const std::string& text) const {
        disk::create_directories((home_ / name).parent_path());
        std::ofstream(home_ / name, std::ios::binary) << text;
    }
    std::string held_on_disk(const std::string& name) const {
        std::ostringstream text;
        text << std::ifstream(home_ / name, std::ios::binary).rdbuf();
        return text.str();
    }
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

    disk::path home_;
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
    EXPECT_EQ(held_on_disk("root/Dir/Old.txt"), "old");
    EXPECT_TRUE(fs::copy("dir/old.txt", "Copies/One.txt", 1));
    EXPECT_EQ(held_on_disk("root/Copies/One.txt"), "old");
    EXPECT_FALSE(fs::rename("dir/old.txt", "dir/taken.txt"));
    EXPECT_TRUE(fs::rename("dir/old.txt", "old.txt"));  // which found "dir/old.txt" by its end until now
    EXPECT_TRUE(fs::rename("old.txt", "Dir/Sub/New.txt"));
    EXPECT_EQ(held_on_disk("root/Dir/Sub/New.txt"), "old");
    EXPECT_FALSE(fs::exists("dir/old.txt"));
    EXPECT_TRUE(fs::exists("dir/sub/new.txt"));
    EXPECT_TRUE(fs::mkdir("Made/Deep"));
    EXPECT_TRUE(disk::is_directory(home_ / "root/Made/Deep"));
    EXPECT_TRUE(fs::mkdir_cache("logs"));
    EXPECT_TRUE(fs::does_cache_dir_exist("logs"));
    EXPECT_TRUE(fs::read_only_set("dir/taken.txt"));
    EXPECT_FALSE(fs::rem_file("dir/taken.txt"));
    EXPECT_TRUE(fs::read_only_remove("dir/taken.txt"));
    fs::create_backup_copy("dir/taken.txt");
    // Under either spelling; a disk that knows no case has both.
    EXPECT_THAT((std::vector{held_on_disk("root/Dir/taken.txt.bak"), held_on_disk("root/Dir/Taken.txt.bak")}),
                testing::Contains("taken"));
    EXPECT_FALSE(fs::exists("dir/taken.txt"));
    fs::rem_dir("Dir");
    EXPECT_FALSE(disk::exists(home_ / "root/Dir"));
    EXPECT_FALSE(fs::exists("dir/sub/new.txt"));
    EXPECT_EQ(fs::search_dir("dir"), nullptr);
    EXPECT_TRUE(disk::exists(home_ / "root/Copies/One.txt"));
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
        EXPECT_TRUE(disk::exists(home_ / "root" / name)) << name;
        EXPECT_FALSE(disk::exists(name)) << name;
    }
    put("outside/old", "old");
    SFsFile* const old = fs::open(path("outside/old").c_str(), EFSMode::APPEND);
    EXPECT_EQ(fs::write(old, "er", 2), 2u);
    fs::close(old);
    EXPECT_EQ(held_on_disk("outside/old"), "older");
    fs::close(fs::open(path("outside/new").c_str(), EFSMode::WRITE, Open::CREATE));
    EXPECT_TRUE(disk::exists(home_ / "outside/new"));
}

TEST_F(StartUp, WhatFailedOnTheWayToASuccessIsForgotten) {
    put("root/x.txt", "root");
    put("more/x.txt", "more");
    ASSERT_TRUE(start("root", whole_tree, true));
    ASSERT_TRUE(fs::add_source(path("more").c_str(), whole_tree));
    disk::remove(home_ / "root/x.txt");  // between look-up and open, so to speak
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

/// Orders a failure of the nth pass of each point, once and from then on, for n = 1, 2 … until `work` meets none.
template <typename Work>
void for_every_fault(Work work) {
    using platform::Failure;
    using platform::FaultPoint;
    for (const FaultPoint point :
         {FaultPoint::OPEN, FaultPoint::READ, FaultPoint::WRITE, FaultPoint::REMOVE, FaultPoint::CREATE_DIRECTORY}) {
        for (const bool from_then_on : {false, true}) {
            for (std::uint32_t nth = 1, hits = 1; hits != 0; ++nth) {
                const std::string label =
                    std::to_string(static_cast<int>(point)) + " " + std::to_string(nth) + (from_then_on ? " on" : "");
                work(label, [&] { platform::inject_fault(point, nth, Failure::DISK_FULL, from_then_on); });
                hits = platform::fault_hits();
                platform::clear_faults();
            }
        }
    }
}

TEST_F(StartUp, ABackupThatStopsAnywhereKeepsEveryGeneration) {
    const char* const names[] = {"x", "x.bak", "x.ba1", "x.ba2", "x.ba3"};
    put("root/x", "");
    ASSERT_TRUE(start("root", whole_tree, true));
    for_every_fault([&](const std::string& label, auto strike) {
        for (std::size_t i = 0; i < 5; ++i) put(std::string("root/") + names[i], std::to_string(5 - i));
        fs::refresh();
        strike();
        fs::create_backup_copy("x");
        std::string kept;
        for (const char* name : names) kept += held_on_disk(std::string("root/") + name);
        for (const char generation : {'5', '4', '3', '2'}) {
            EXPECT_NE(kept.find(generation), std::string::npos) << label << ": " << kept;
        }
    });
}

TEST_F(StartUp, ACopyThatFailsAnywhereSaysSoAndLeavesNothingOpen) {
    put("root/from", "from");
    ASSERT_TRUE(start("root", whole_tree, true));
    for_every_fault([&](const std::string& label, auto strike) {
        put("root/to", "old");
        fs::refresh();
        strike();
        const bool copied = fs::copy("from", "to", 3);
        EXPECT_EQ(copied, held_on_disk("root/to") == "from") << label;
        EXPECT_EQ(held_on_disk("root/from"), "from") << label;
        platform::clear_faults();
        EXPECT_TRUE(fs::rem_file("to")) << label << ": " << fs::last_error().text;
    });
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
TEST_F(StartUp, ARootThatDoesNotMountEndsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const std::string none = path("none");
    EXPECT_EXIT(fs::init(none.c_str(), Flags::MUST_EXIST, "", false, false, nullptr), testing::ExitedWithCode(255), "");
}
#endif

}  // namespace

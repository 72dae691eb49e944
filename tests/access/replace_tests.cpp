#include <gtest/gtest.h>

#include <engine/filesystem.h>
#include <engine/filesystem/comfort.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <thread>
#include <vector>

#include "engine/platform/faults.h"
#include "tests/access/files.h"
#include "tests/support/child_process.h"
#include "tests/support/temp_directory.h"

// A file opened with REPLACE: the old one stays, for everybody, until the new one is whole and closed.

namespace {

using Flags = FFSOpenFlags;
using test::load;

class Replace : public testing::Test {
protected:
    void SetUp() override {
        home_.write("game/Saves/Slot.sav", "old");
        ASSERT_TRUE(fs::init((home_ / "game").c_str(), FFSAddSourceFlags::RECURSIVE | FFSAddSourceFlags::INDEX_NAMES,
                             (home_ / "cache").c_str(), true, false, nullptr));
        fs::clear_error();
    }
    void TearDown() override {
        fs::set_monitor(nullptr);
        fs::shutdown();
    }

    static SFsFile* begin(const char* name, const char* text = "the new one", Flags::FLAGS flags = Flags::CREATE) {
        SFsFile* const file = fs::open(name, EFSMode::WRITE, flags | Flags::REPLACE);
        if (file != nullptr) EXPECT_EQ(fs::write(file, text, std::strlen(text)), std::strlen(text));
        return file;
    }
    std::vector<std::string> on_disk() const {
        std::vector<std::string> names;
        const std::filesystem::path root = home_ / "game";
        for (const auto& item : std::filesystem::recursive_directory_iterator(root)) {
            if (!item.is_directory()) names.push_back(item.path().lexically_relative(root).generic_string());
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    TempDirectory home_;
};

TEST_F(Replace, TheOldFileStaysUntilTheNewOneIsClosed) {
    SFsFile* file = begin("saves/slot.sav");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(load("saves/slot.sav"), "old") << "readers are not kept out";
    EXPECT_TRUE(fs::seek(file, 4, EFSSeek::BEGIN) && fs::set_eof(file));
    EXPECT_EQ(begin("saves/slot.sav"), nullptr) << "two writers of one file";
    EXPECT_EQ(fs::last_error().code, EFSError::IN_USE);
    EXPECT_TRUE(fs::commit(file));
    EXPECT_EQ(home_.read("game/Saves/Slot.sav"), "the ");
    fs::close(begin("saves/slot.sav", "closed", Flags::NONE));
    EXPECT_EQ(load("saves/slot.sav"), "closed");
    fs::discard(begin("saves/slot.sav"));
    EXPECT_EQ(load("saves/slot.sav"), "closed");
    EXPECT_TRUE(fs::save_text_file("text", "saves/slot.sav", Flags::REPLACE));
    EXPECT_EQ(load("saves/slot.sav"), "text");
    EXPECT_EQ(on_disk(), std::vector<std::string>{"Saves/Slot.sav"});
}

TEST_F(Replace, ANewFileIsThereWhenItIsWhole) {
    SFsFile* file = begin("New/Fresh.sav");
    ASSERT_NE(file, nullptr);
    EXPECT_FALSE(fs::exists("new/fresh.sav"));
    EXPECT_EQ(load("new/fresh.sav"), "(none)");
    EXPECT_TRUE(fs::commit(file));
    EXPECT_EQ(load("new/fresh.sav"), "the new one");
    EXPECT_EQ(home_.read("game/New/Fresh.sav"), "the new one");
    EXPECT_NE(fs::search_dir("new"), nullptr);
    fs::discard(begin("new/other.sav"));
    EXPECT_FALSE(fs::exists("new/other.sav"));
    file = begin("new/late.sav");
    fs::shutdown();
    EXPECT_TRUE(fs::commit(file)) << "the source is gone";
    EXPECT_EQ(on_disk(), (std::vector<std::string>{"New/Fresh.sav", "New/late.sav", "Saves/Slot.sav"}));
}

TEST_F(Replace, WhatFailsLeavesTheOldFile) {
    {
        SFsFile* const file = begin("saves/slot.sav");
        platform::inject_fault(platform::FaultPoint::WRITE, 1, platform::Failure::DISK_FULL, false);
        EXPECT_NE(fs::write(file, "more", 4), 4u);
        platform::clear_faults();
        EXPECT_FALSE(fs::commit(file));
        EXPECT_EQ(fs::last_error().code, EFSError::DISK_FULL);
    }
    EXPECT_EQ(load("saves/slot.sav"), "old");
    SFsFile* file = begin("saves/slot.sav");
    SFsFile* const reader = fs::open("saves/slot.sav", EFSMode::READ);
    EXPECT_FALSE(fs::commit(file)) << "as a file that is open is replaced on no system";
    EXPECT_EQ(fs::last_error().code, EFSError::IN_USE);
    fs::close(reader);
    ASSERT_TRUE(fs::read_only_set("saves/slot.sav"));
    EXPECT_EQ(begin("saves/slot.sav"), nullptr);
    EXPECT_EQ(fs::last_error().code, EFSError::READ_ONLY);
    EXPECT_TRUE(fs::read_only_remove("saves/slot.sav"));
    EXPECT_EQ(load("saves/slot.sav"), "old");
    EXPECT_EQ(on_disk(), std::vector<std::string>{"Saves/Slot.sav"});
    for (const EFSMode::TYPE mode : {EFSMode::APPEND, EFSMode::READ_WRITE}) {
        EXPECT_EQ(fs::open("saves/slot.sav", mode, Flags::REPLACE), nullptr);
        EXPECT_EQ(fs::last_error().code, EFSError::INVALID_ARGUMENT);
    }
}

TEST_F(Replace, WhatAKilledProcessLeftIsWrittenAnew) {
    home_.write("game/Saves/#Slot.sav", "half of a save that is longer than the next one");
    EXPECT_TRUE(fs::commit(begin("saves/slot.sav")));
    EXPECT_EQ(load("saves/slot.sav"), "the new one");
    EXPECT_EQ(on_disk(), std::vector<std::string>{"Saves/Slot.sav"});
}

TEST_F(Replace, GoesWithGzipNativePathsAndTheMonitor) {
    class Monitor : public fs::IFsMonitor {
    public:
        void touch_file(const char* path, EFSMode::TYPE, Flags::FLAGS) override { heard.emplace_back(path); }
        std::vector<std::string> heard;
    } monitor;
    fs::set_monitor(&monitor);
    EXPECT_TRUE(fs::commit(begin("saves/slot.sav", "packed", Flags::GZIP_LEVEL5)));
    EXPECT_TRUE(monitor.heard.size() == 1 && monitor.heard[0].ends_with("Saves/Slot.sav"));
    EXPECT_EQ(load("saves/slot.sav", Flags::GZIP), "packed");
    const std::string path = home_ / "outside.txt";
    SFsFile* file = fs::open_native(nullptr, path.c_str(), EFSMode::WRITE, Flags::REPLACE);
    EXPECT_EQ(file, nullptr) << "nothing to replace, and CREATE was not given";
    file = fs::open_native(nullptr, path.c_str(), EFSMode::WRITE, Flags::REPLACE | Flags::CREATE);
    ASSERT_NE(file, nullptr);
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_TRUE(fs::commit(file));
    EXPECT_TRUE(std::filesystem::exists(path));
    EXPECT_TRUE(fs::commit(fs::open("saves/slot.sav", EFSMode::WRITE))) << "a file like any other is closed";
    EXPECT_FALSE(fs::commit(nullptr));
}

std::string save_number(std::size_t number) { return std::string(100'000, static_cast<char>('a' + number % 26)); }

TEST(ReplaceChild, DISABLED_SavesUntilItIsKilled) {
    const std::string root = child_root();
    ASSERT_TRUE(fs::init({.root = root.c_str(), .use_fallback = false}));
    std::thread([] {
        std::this_thread::sleep_for(std::chrono::microseconds(std::random_device()() % 100'000));
#if defined(SIGKILL)
        std::raise(SIGKILL);
#else
        std::_Exit(EXIT_FAILURE);
#endif
    }).detach();
    for (std::size_t number = 0;; ++number) {
        ASSERT_TRUE(fs::save_text_file(save_number(number), "slot.sav", Flags::REPLACE));
        std::ofstream(root + "/saves", std::ios::app).put('.');
    }
}

TEST_F(Replace, EverySaveIsWholeWhenItsWriterIsKilled) {
    const std::string root = home_ / "killed";
    std::filesystem::create_directory(root);
    for (std::uintmax_t saves = 0; saves < 200;) {
        run_children(1, "ReplaceChild.DISABLED_SavesUntilItIsKilled", root);
        if (!home_.exists("killed/slot.sav")) continue;  // killed before the first
        const std::string found = home_.read("killed/slot.sav");
        ASSERT_EQ(found, save_number(static_cast<std::size_t>(found.empty() ? 0 : found[0] - 'a')));
        saves = home_.exists("killed/saves") ? std::filesystem::file_size(root + "/saves") : 0;
    }
    ASSERT_TRUE(fs::add_source(root.c_str(), FFSAddSourceFlags::BEFORE_PACKS));
    EXPECT_TRUE(fs::save_text_file("the last", "slot.sav", Flags::REPLACE));
    EXPECT_EQ(home_.read("killed/slot.sav"), "the last");
    EXPECT_FALSE(home_.exists("killed/#slot.sav"));
}

#if !defined(_WIN32)
TEST_F(Replace, TheFileBehindALinkIsReplacedAndKeepsItsPermissions) {
    home_.write("elsewhere/slot.sav", "old");
    std::filesystem::permissions(home_ / "elsewhere/slot.sav", std::filesystem::perms(0600));
    std::filesystem::create_symlink(home_ / "elsewhere/slot.sav", home_ / "game/link.sav");
    fs::refresh();
    EXPECT_TRUE(fs::commit(begin("link.sav")));
    EXPECT_TRUE(std::filesystem::is_symlink(home_ / "game/link.sav"));
    EXPECT_EQ(home_.read("elsewhere/slot.sav"), "the new one");
    EXPECT_EQ(std::filesystem::status(home_ / "elsewhere/slot.sav").permissions(), std::filesystem::perms(0600));
}
#endif

}  // namespace

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <thread>

#include "tests/access/kit.h"
#include "tests/sources/kit.h"
#include "tests/support/child_process.h"

// A file opened with REPLACE: the old one stays, for everybody, until the new one is whole and closed.

namespace {

using Flags = FFSOpenFlags;

class Replace : public OverDisk {
protected:
    void SetUp() override {
        home_.write("game/Saves/Slot.sav", "old");
        Start(true);
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
        return names;
    }
};

TEST_F(Replace, TheOldFileStaysUntilTheNewOneIsClosed) {
    home_.write("game/Saves/#Slot.sav", "what a killed process left, which is longer than the new one");
    SFsFile* file = begin("saves/slot.sav");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(load("saves/slot.sav"), "old") << "readers are not kept out";
    EXPECT_TRUE(fs::seek(file, 4, EFSSeek::BEGIN) && fs::set_eof(file));
    EXPECT_EQ(why(begin("saves/slot.sav")), IN_USE) << "two writers of one file";
    EXPECT_TRUE(fs::commit(file));
    EXPECT_EQ(home_.read("game/Saves/Slot.sav"), "the ");
    fs::close(begin("saves/slot.sav", "closed", Flags::NONE));
    fs::discard(begin("saves/slot.sav"));
    EXPECT_EQ(load("saves/slot.sav"), "closed");
    EXPECT_TRUE(fs::save_text_file("text", "saves/slot.sav", Flags::REPLACE));
    EXPECT_EQ(load("saves/slot.sav"), "text");
    EXPECT_THAT(on_disk(), ElementsAre("Saves/Slot.sav"));
}

TEST_F(Replace, ANewFileIsThereWhenItIsWhole) {
    SFsFile* file = begin("New/Fresh.sav");
    ASSERT_NE(file, nullptr);
    EXPECT_FALSE(fs::exists("new/fresh.sav"));
    EXPECT_TRUE(fs::commit(file));
    EXPECT_EQ(load("new/fresh.sav"), "the new one");
    EXPECT_NE(fs::search_dir("new"), nullptr);
    fs::discard(begin("new/other.sav"));
    EXPECT_FALSE(fs::exists("new/other.sav"));
    file = begin("new/late.sav");
    fs::shutdown();
    EXPECT_TRUE(fs::commit(file)) << "the source is gone";
    EXPECT_THAT(on_disk(), testing::UnorderedElementsAre("New/Fresh.sav", "New/late.sav", "Saves/Slot.sav"));
}

TEST_F(Replace, WhatFailsLeavesTheOldFile) {
    SFsFile* const file = begin("saves/slot.sav");
    fs::file_ptr reader = fs::open_file("saves/slot.sav", EFSMode::READ);
    EXPECT_EQ(why(fs::commit(file)), IN_USE) << "as a file that is open is replaced on no system";
    reader.reset();
    ASSERT_TRUE(fs::read_only_set("saves/slot.sav"));
    EXPECT_EQ(why(begin("saves/slot.sav")), READ_ONLY);
    EXPECT_TRUE(fs::read_only_remove("saves/slot.sav"));
    for (const EFSMode::TYPE mode : {EFSMode::APPEND, EFSMode::READ_WRITE})
        EXPECT_EQ(why(fs::open("saves/slot.sav", mode, Flags::REPLACE)), INVALID_ARGUMENT);
    EXPECT_EQ(load("saves/slot.sav"), "old");
    EXPECT_THAT(on_disk(), ElementsAre("Saves/Slot.sav"));
}

TEST_F(Replace, GoesWithGzipNativePathsAndTheMonitor) {
    const RecordingMonitor monitor;
    EXPECT_TRUE(fs::commit(begin("saves/slot.sav", "packed", Flags::GZIP_LEVEL5)));
    EXPECT_THAT(monitor.touched, ElementsAre(testing::StartsWith("Slot.sav ")));
    EXPECT_EQ(load("saves/slot.sav", Flags::GZIP), "packed");
    const std::string path = home_ / "outside.txt";
    const auto open = [&](Flags::FLAGS flags) { return fs::open_native(nullptr, path.c_str(), EFSMode::WRITE, flags); };
    EXPECT_EQ(open(Flags::REPLACE), nullptr) << "nothing to replace, and CREATE was not given";
    SFsFile* const file = open(Flags::REPLACE | Flags::CREATE);
    ASSERT_NE(file, nullptr);
    EXPECT_FALSE(home_.exists("outside.txt"));
    EXPECT_TRUE(fs::commit(file));
    EXPECT_TRUE(home_.exists("outside.txt"));
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
    bool is_saved = false;
    while (home_.read("killed/saves").size() < 200) {
        run_children(1, "ReplaceChild.DISABLED_SavesUntilItIsKilled", root);
        if (!is_saved && !home_.exists("killed/slot.sav")) continue;  // killed before the first
        is_saved = true;
        const std::string found = home_.read("killed/slot.sav");
        ASSERT_EQ(found, save_number(static_cast<std::size_t>(found.empty() ? 0 : found[0] - 'a')));
    }
    ASSERT_TRUE(fs::add_source(root.c_str(), FFSAddSourceFlags::BEFORE_PACKS));
    EXPECT_TRUE(fs::save_text_file("the last", "slot.sav", Flags::REPLACE));
    EXPECT_EQ(home_.read("killed/slot.sav"), "the last");
    EXPECT_FALSE(home_.exists("killed/#slot.sav"));
}

#if !defined(_WIN32)
TEST_F(Replace, TheFileBehindALinkIsReplacedAndKeepsItsPermissions) {
    const std::string target = home_.write("elsewhere/slot.sav", "old");
    std::filesystem::permissions(target, std::filesystem::perms(0600));
    std::filesystem::create_symlink(target, home_ / "game/link.sav");
    fs::refresh();
    EXPECT_TRUE(fs::commit(begin("link.sav")));
    EXPECT_TRUE(std::filesystem::is_symlink(home_ / "game/link.sav"));
    EXPECT_EQ(read_file(target), "the new one");
    EXPECT_EQ(std::filesystem::status(target).permissions(), std::filesystem::perms(0600));
}
#endif

}  // namespace

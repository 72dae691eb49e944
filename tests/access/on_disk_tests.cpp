// Opening and managing through the sources that the library starts with, on a real disk.
#include <engine/filesystem.h>

#include <gmock/gmock.h>

#include <string>

#include "tests/access/files.h"
#include "tests/support/memory_source.h"
#include "tests/support/mounted_root.h"

namespace {

using test::load;
using test::save;
using testing::ElementsAre;
using Flags = FFSOpenFlags;

class OnDisk : public testing::Test {
protected:
    void TearDown() override { fs::shutdown(); }

    void start(bool use_fallback, FFSAddSourceFlags::ENUM flags = whole_tree) {
        ASSERT_TRUE(fs::init((home_ / "game").c_str(), flags, (home_ / "cache").c_str(), use_fallback, false, nullptr));
        fs::clear_error();
    }

    TempDirectory home_;
};

TEST_F(OnDisk, WhatAnotherProcessMadeSinceTheMountIsChangedInPlace) {
    home_.write("game/saves/known.txt", "known");
    start(false);
    for (const std::string name : {"new.txt", "saves/new.txt", "saves/other.txt"}) {
        SCOPED_TRACE(name);
        home_.write("game/" + name, "theirs");
        EXPECT_TRUE(save(name.c_str(), "+ours", EFSMode::APPEND));
        EXPECT_EQ(load(name.c_str()), "theirs+ours");
    }
    home_.write("game/saves/changed.txt", "theirs");
    EXPECT_TRUE(save("saves/changed.txt", "T", EFSMode::READ_WRITE));
    EXPECT_EQ(load("saves/changed.txt"), "Theirs");
    home_.write("game/saves/written.txt", "theirs");
    EXPECT_TRUE(save("saves/written.txt", "ours"));
    EXPECT_EQ(load("saves/written.txt"), "ours");
}

TEST_F(OnDisk, TheCacheDirectoryIsAPlaceOfItsOwn) {
    home_.write("game/textures/sky.dds", "game");
    start(true);
    EXPECT_EQ(load("textures/sky.dds", Flags::IN_CACHE_DIR), "(none)");
    EXPECT_FALSE(fs::exists("textures/sky.dds", Flags::IN_CACHE_DIR));
    EXPECT_FALSE(fs::rem_file("textures/sky.dds", Flags::IN_CACHE_DIR));
    EXPECT_TRUE(save("Textures/Sky.dds", "cached", EFSMode::WRITE, Flags::IN_CACHE_DIR | Flags::CREATE));
    EXPECT_TRUE(save("log.txt", "one", EFSMode::APPEND, Flags::IN_CACHE_DIR));
    EXPECT_TRUE(save("log.txt", "two", EFSMode::APPEND, Flags::IN_CACHE_DIR));
    EXPECT_EQ(home_.read("cache/Textures/Sky.dds"), "cached");
    EXPECT_EQ(home_.read("cache/log.txt"), "onetwo");
    EXPECT_EQ(load("textures/sky.dds", Flags::IN_CACHE_DIR), "cached");
    EXPECT_EQ(load("textures/sky.dds"), "game");
    EXPECT_EQ(test::take_names(fs::search(nullptr, nullptr, true, false)).size(), 1u);  // no source learned of it
    EXPECT_FALSE(fs::does_cache_dir_exist("a"));
    EXPECT_TRUE(fs::mkdir_cache("a/b") && fs::mkdir_cache("a/b/"));
    for (const char* dir : {"", "a", "a\\b\\", static_cast<const char*>(nullptr)})
        EXPECT_TRUE(fs::does_cache_dir_exist(dir));
    EXPECT_FALSE(fs::does_cache_dir_exist(".."));
    const std::string too_long(300, 'l');
    for (const char* none : {"", "/", "../up", static_cast<const char*>(nullptr), too_long.c_str()})
        EXPECT_FALSE(fs::mkdir_cache(none));
    EXPECT_TRUE(fs::rem_file("textures/sky.dds", Flags::IN_CACHE_DIR));
    EXPECT_FALSE(home_.exists("cache/Textures/Sky.dds"));
    EXPECT_EQ(home_.read("game/textures/sky.dds"), "game");
    EXPECT_FALSE(save("bad|name", "", EFSMode::WRITE, Flags::IN_CACHE_DIR | Flags::CREATE));
    EXPECT_EQ(fs::last_error().code, EFSError::INVALID_NAME);
}

TEST_F(OnDisk, AFullPathInsideTheRootIsTheFileThere) {
    home_.write("game/a/x.txt", "old");
    start(true);
    const std::string made = home_ / "game/Sub/New.txt";
    EXPECT_TRUE(fs::save_text_file("made", made.c_str()));
    EXPECT_TRUE(fs::mkdir((home_ / "game/dir").c_str()));
    for (int round = 0; round < 2; ++round) {
        EXPECT_THAT(test::take_names(fs::search("sub", nullptr, false, true)), ElementsAre("sub/new.txt"));
        EXPECT_NE(fs::search_dir("sub"), nullptr);
        EXPECT_EQ(load("sub/new.txt"), "made");
        EXPECT_EQ(load(made.c_str()), "made");
        fs::refresh();
    }
    home_.write("game/Sub/late.txt", "late");
    fs::refresh((home_ / "game/sub").c_str());
    EXPECT_EQ(load("sub/late.txt"), "late");
    EXPECT_TRUE(fs::rename((home_ / "game/sub/late.txt").c_str(), (home_ / "game/sub/z.txt").c_str()));
    EXPECT_EQ(fs::root_path("z.txt"), "sub/z.txt");
    EXPECT_TRUE(fs::rem_file(made.c_str()));
    EXPECT_FALSE(fs::exists("new.txt"));
    fs::rem_dir((home_ / "game/sub").c_str());
    EXPECT_FALSE(home_.exists("game/Sub"));
    EXPECT_EQ(fs::search_dir("sub"), nullptr);
}

TEST_F(OnDisk, WithoutTheFallbackNothingLeadsOutOfTheMounts) {
    const std::string outside = home_.write("outside/x.txt", "kept");
    start(false);
    const std::string fresh = home_ / "outside/new.txt";
    for (const char* path : {outside.c_str(), fresh.c_str(), "/engine_test_x.txt"}) {
        EXPECT_EQ(load(path), "(none)") << path;
        for (const auto mode : {EFSMode::WRITE, EFSMode::APPEND, EFSMode::READ_WRITE}) {
            EXPECT_FALSE(save(path, "x", mode, Flags::CREATE)) << path;
            EXPECT_EQ(fs::last_error().code, EFSError::ACCESS_DENIED) << path;
        }
        EXPECT_FALSE(fs::exists(path) || fs::rem_file(path) || fs::mkdir(path));
    }
    EXPECT_FALSE(save("x.txt", "x", EFSMode::WRITE, Flags::IN_CACHE_DIR | Flags::CREATE));
    EXPECT_EQ(home_.read("outside/x.txt"), "kept");
    EXPECT_FALSE(home_.exists("outside/new.txt"));
    EXPECT_TRUE(test::take_names(fs::search(nullptr, nullptr, true, false)).empty());
}

TEST_F(OnDisk, ARootThatIsNotWritableCreatesNothing) {
    home_.write("game/x.txt", "old");
    start(true, FFSAddSourceFlags::MUST_EXIST | whole_tree);
    EXPECT_FALSE(fs::save_text_file("new", "new.txt"));
    EXPECT_EQ(fs::last_error().code, EFSError::READ_ONLY);
    EXPECT_FALSE(fs::mkdir("dir"));
    EXPECT_EQ(fs::last_error().code, EFSError::READ_ONLY);
    EXPECT_FALSE(home_.exists("game/new.txt") || home_.exists("game/dir"));
}

TEST_F(OnDisk, TellsHowTheDiskSpellsAFile) {
    home_.write("game/Sounds/Step.WAV", "");
    home_.write("game/gone.txt", "");
    start(true);
    fs::string path = "kept";
    EXPECT_TRUE(fs::native_path("sounds\\STEP.wav", path));
    EXPECT_THAT(path, testing::EndsWith("/game/Sounds/Step.WAV"));
    path = "kept";
    std::remove((home_ / "game/gone.txt").c_str());
    for (const char* missing : {"gone.txt", "missing.txt", "", static_cast<const char*>(nullptr)}) {
        EXPECT_FALSE(fs::native_path(missing, path));
        EXPECT_EQ(fs::last_error().code, EFSError::NOT_FOUND);
    }
    test::mount_memory("/m.pak", EFSSourceType::PACK)->add("sounds/step.wav", "");
    EXPECT_FALSE(fs::native_path("sounds/step.wav", path));
    EXPECT_EQ(fs::last_error().code, EFSError::UNSUPPORTED);
    EXPECT_EQ(path, "kept");
}

}  // namespace

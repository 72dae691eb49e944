// Opening and managing through the sources that the library starts with, on a real disk.
#include "tests/access/kit.h"

namespace {

using Flags = FFSOpenFlags;

class OnDisk : public OverDisk {};

TEST_F(OnDisk, WhatAnotherProcessMadeSinceTheMountIsChangedInPlace) {
    home_.write("game/saves/known.txt", "known");
    Start(false);
    const std::tuple<const char*, EFSMode::TYPE, const char*> rows[] = {{"new.txt", EFSMode::APPEND, "theirsours"},
                                                                        {"saves/a.txt", EFSMode::APPEND, "theirsours"},
                                                                        {"saves/b.txt", EFSMode::APPEND, "theirsours"},
                                                                        {"saves/c.txt", EFSMode::READ_WRITE, "oursrs"},
                                                                        {"saves/d.txt", EFSMode::WRITE, "ours"}};
    for (const auto& [name, mode, after] : rows) {
        home_.write(std::string("game/") + name, "theirs");
        EXPECT_TRUE(save(name, "ours", mode)) << name;
        EXPECT_EQ(load(name), after) << name;
    }
}

TEST_F(OnDisk, TheCacheDirectoryIsAPlaceOfItsOwn) {
    constexpr auto creates = Flags::IN_CACHE_DIR | Flags::CREATE;
    home_.write("game/textures/sky.dds", "game");
    Start(true);
    EXPECT_EQ(load("textures/sky.dds", Flags::IN_CACHE_DIR), "(none)");
    EXPECT_FALSE(fs::exists("textures/sky.dds", Flags::IN_CACHE_DIR));
    EXPECT_FALSE(fs::rem_file("textures/sky.dds", Flags::IN_CACHE_DIR));
    EXPECT_TRUE(save("Textures/Sky.dds", "cached", EFSMode::WRITE, creates));
    for (const char* text : {"one", "two"}) EXPECT_TRUE(save("log.txt", text, EFSMode::APPEND, Flags::IN_CACHE_DIR));
    EXPECT_EQ(home_.read("cache/Textures/Sky.dds") + home_.read("cache/log.txt"), "cachedonetwo");
    EXPECT_EQ(load("textures/sky.dds", Flags::IN_CACHE_DIR) + load("textures/sky.dds"), "cachedgame");
    EXPECT_EQ(take_names(fs::search(nullptr, nullptr, true, false)).size(), 1u);  // no source learned of it
    EXPECT_FALSE(fs::does_cache_dir_exist("a") || fs::does_cache_dir_exist(".."));
    EXPECT_TRUE(fs::mkdir_cache("a/b") && fs::mkdir_cache("a/b/"));
    for (const char* dir : {"", "a", "a\\b\\", static_cast<const char*>(nullptr)})
        EXPECT_TRUE(fs::does_cache_dir_exist(dir));
    fs::clear_error();
    const std::string too_long(300, 'l');
    for (const char* none : {"", "/", "../up", static_cast<const char*>(nullptr), too_long.c_str()})
        EXPECT_EQ(why(fs::mkdir_cache(none)), INVALID_NAME);
    EXPECT_EQ(why(fs::rem_file("../game/textures/sky.dds", Flags::IN_CACHE_DIR)), INVALID_NAME);
    EXPECT_TRUE(fs::rem_file("textures/sky.dds", Flags::IN_CACHE_DIR));
    EXPECT_FALSE(home_.exists("cache/Textures/Sky.dds"));
    EXPECT_EQ(home_.read("game/textures/sky.dds"), "game");
    EXPECT_EQ(why(save("bad|name", "", EFSMode::WRITE, creates)), INVALID_NAME);
}

TEST_F(OnDisk, AFullPathInsideTheRootIsTheFileThere) {
    home_.write("game/a/x.txt", "old");
    Start(true);
    const std::string made = home_ / "game/Sub/New.txt";
    EXPECT_TRUE(fs::save_text_file("made", made.c_str()));
    EXPECT_TRUE(fs::mkdir((home_ / "game/dir").c_str()));
    EXPECT_THAT(take_names(fs::search("sub", nullptr, false, true)), ElementsAre("sub/new.txt"));
    EXPECT_NE(fs::search_dir("sub"), nullptr);
    EXPECT_EQ(load("sub/new.txt") + load(made.c_str()), "mademade");
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
    Start(false);
    const std::string fresh = home_ / "outside/new.txt";
    for (const char* path : {outside.c_str(), fresh.c_str(), "/engine_test_x.txt"}) {
        EXPECT_EQ(load(path), "(none)") << path;
        for (const auto mode : {EFSMode::WRITE, EFSMode::APPEND, EFSMode::READ_WRITE})
            EXPECT_EQ(why(save(path, "x", mode, Flags::CREATE)), ACCESS_DENIED) << path;
        EXPECT_FALSE(fs::exists(path) || fs::rem_file(path) || fs::mkdir(path));
    }
    EXPECT_FALSE(save("x.txt", "x", EFSMode::WRITE, Flags::IN_CACHE_DIR | Flags::CREATE));
    EXPECT_EQ(home_.read("outside/x.txt"), "kept");
    EXPECT_FALSE(home_.exists("outside/new.txt"));
    EXPECT_TRUE(take_names(fs::search(nullptr, nullptr, true, false)).empty());
}

}  // namespace

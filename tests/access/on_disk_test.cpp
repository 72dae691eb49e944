// Opening and managing through the sources that the library starts with, on a real disk.
#include "tests/access/kit.h"
#include "tests/support/pack_file.h"

namespace {

using Flags = FFSOpenFlags;

class OnDisk : public OverDisk {};

TEST_F(OnDisk, WhatAnotherProcessMadeSinceTheMountIsChangedInPlace) {
    home_.write("game/saves/known.txt", "known");
    Start(false);
    const std::tuple<const char*, EFSMode::TYPE, const char*> rows[] = {{"new.txt", EFSMode::APPEND, "theirsours"},
                                                                        {"saves/a.txt", EFSMode::APPEND, "theirsours"},
                                                                        {"saves/c.txt", EFSMode::READ_WRITE, "oursrs"},
                                                                        {"saves/d.txt", EFSMode::WRITE, "ours"}};
    for (const auto& [name, mode, after] : rows) {
        home_.write(std::string("game/") + name, "theirs");
        EXPECT_TRUE(save(name, "ours", mode)) << name;
        EXPECT_EQ(load(name), after) << name;
    }
}

TEST_F(OnDisk, TheCacheDirectoryIsAPlaceOfItsOwn) {
    constexpr auto in_cache = Flags::IN_CACHE_DIR;
    constexpr auto creates = in_cache | Flags::CREATE;
    home_.write("game/textures/sky.dds", "game");
    Start(true);
    EXPECT_FALSE(fs::exists("textures/sky.dds", in_cache) || fs::rem_file("textures/sky.dds", in_cache));
    EXPECT_TRUE(save("Textures/Sky.dds", "cached", EFSMode::WRITE, creates));
    for (const char* text : {"one", "two"}) EXPECT_TRUE(save("log.txt", text, EFSMode::APPEND, in_cache));
    EXPECT_EQ(home_.read("cache/Textures/Sky.dds") + home_.read("cache/log.txt"), "cachedonetwo");
    EXPECT_EQ(load("textures/sky.dds", in_cache) + load("textures/sky.dds"), "cachedgame");
    EXPECT_EQ(take_names(fs::search(nullptr, nullptr, true, false)).size(), 1u) << "no source learned of it";
    EXPECT_FALSE(fs::does_cache_dir_exist("a") || fs::does_cache_dir_exist(".."));
    EXPECT_TRUE(fs::mkdir_cache("a/b") && fs::mkdir_cache("a/b/"));
    for (const char* dir : {"", "a", "a\\b\\", static_cast<const char*>(nullptr)})
        EXPECT_TRUE(fs::does_cache_dir_exist(dir));
    fs::clear_error();
    const std::string too_long(300, 'l');
    for (const char* none : {"", "/", "../up", static_cast<const char*>(nullptr), too_long.c_str()})
        EXPECT_EQ(why(fs::mkdir_cache(none)), INVALID_NAME);
    EXPECT_EQ(why(fs::rem_file("../game/textures/sky.dds", in_cache)), INVALID_NAME);
    EXPECT_EQ(why(save("bad|name", "", EFSMode::WRITE, creates)), INVALID_NAME);
    EXPECT_TRUE(fs::rem_file("textures/sky.dds", in_cache));
    EXPECT_FALSE(home_.exists("cache/Textures/Sky.dds"));
    EXPECT_EQ(home_.read("game/textures/sky.dds"), "game");
}

TEST_F(OnDisk, AFullPathInsideTheRootIsTheFileThere) {
    Start(true);
    const std::string made = home_ / "game/Sub/New.txt";
    EXPECT_TRUE(fs::save_text_file("made", made.c_str()));
    EXPECT_TRUE(fs::mkdir((home_ / "game/dir").c_str()));
    EXPECT_THAT(take_names(fs::search("sub", nullptr, false, true)), ElementsAre("sub/new.txt"));
    EXPECT_NE(fs::search_dir("sub"), nullptr);
    EXPECT_EQ(load("sub/new.txt") + load(made.c_str()), "mademade");
    {
        const fs::file_ptr writer = fs::open_file("new.txt", EFSMode::READ_WRITE);
        EXPECT_EQ(why(fs::open_file("new.txt", EFSMode::READ)), IN_USE) << "though the fallback does not find it";
    }
    home_.write("game/Sub/late.txt", "late");
    fs::refresh((home_ / "game/sub").c_str());
    EXPECT_EQ(load("sub/late.txt"), "late");
    EXPECT_TRUE(fs::rename((home_ / "game/sub/late.txt").c_str(), (home_ / "game/sub/z.txt").c_str()));
    EXPECT_EQ(fs::root_path("z.txt"), "sub/z.txt");
    EXPECT_TRUE(fs::rename((home_ / "game/sub/z.txt").c_str(), (home_ / "game/sub/Z.txt").c_str()));
    EXPECT_TRUE(home_.exists("game/Sub/Z.txt"));
    const std::string outside = home_.write("outside.txt", "kept");
    EXPECT_EQ(why(fs::rename(outside.c_str(), (home_ / "game/in.txt").c_str())), INVALID_NAME);
    EXPECT_TRUE(home_.exists("outside.txt"));
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

// Who is asked first, who creates, and names below a prefix.

using Add = FFSAddSourceFlags;

class Overlays : public OverDisk {
protected:
    void SetUp() override {
        const std::pair<const char*, const char*> files[] = {{"game/a.txt", "root"},
                                                             {"mod/a.txt", "mod"},
                                                             {"mod/Deep/b.txt", "mod b"},
                                                             {"mod/again/a.txt", "mod again"},
                                                             {"mod/0/a.txt", "mod 0"}};
        for (const auto& [name, text] : files) home_.write(name, text);
        ASSERT_TRUE(write_pack(home_ / "base.pak", {{"a.txt", "pack"}, {"textures/sky.dds", "sky"}}));
        ASSERT_TRUE(write_pack(home_ / "late.pak", {{"a.txt", "late"}}));
    }
    bool add(const char* name, Add::ENUM flags = Add::NONE) { return fs::add_source((home_ / name).c_str(), flags); }
    bool add_at(const char* name, const char* prefix, Add::ENUM flags = whole_tree) {
        return fs::add_source_at((home_ / name).c_str(), prefix, flags);
    }
};

TEST_F(Overlays, ADirectoryBeforePacksWinsOverAllOfThem) {
    Start(false);
    ASSERT_TRUE(add("base.pak"));
    EXPECT_EQ(load("a.txt"), "pack");
    ASSERT_TRUE(add("mod", whole_tree | Add::BEFORE_PACKS));
    EXPECT_EQ(load("a.txt"), "mod");
    ASSERT_TRUE(add("late.pak"));
    EXPECT_EQ(load("a.txt"), "mod") << "later packs go behind it";
    EXPECT_EQ(why(save("new.txt", "new")), READ_ONLY) << "the first behind it would make that";
    EXPECT_TRUE(fs::rem_source((home_ / "mod").c_str()));
    EXPECT_EQ(load("a.txt"), "late");
    fs::shutdown();
    Start(false, whole_tree | Add::BEFORE_PACKS);
    ASSERT_TRUE(add("base.pak"));
    EXPECT_EQ(load("a.txt"), "root");
}

TEST_F(Overlays, ABackupIsOfTheFileThatAFullPathNames) {
    Start(false);
    ASSERT_TRUE(add("mod"));
    fs::create_backup_copy((home_ / "mod/a.txt").c_str());
    EXPECT_EQ(home_.read("mod/a.txt.bak") + home_.read("game/a.txt"), "modroot");
}

TEST_F(Overlays, AFileIsInstalledUnlessItIsKnownAsMissingAlone) {
    Start(false);
    EXPECT_TRUE(fs::is_installed("unknown.txt") && fs::is_installed("A.txt") && fs::is_installed(nullptr));
    fs::mark_installed("a.TXT", false);
    EXPECT_FALSE(fs::is_installed("a.txt"));
    ASSERT_TRUE(add("mod", whole_tree));
    EXPECT_TRUE(fs::is_installed("a.txt")) << "a later source has it";
    for (const bool on : {false, true}) {
        fs::mark_installed(on);
        EXPECT_EQ(fs::is_installed("a.txt"), on);
    }
    fs::mark_installed(nullptr, false);
}

TEST_F(Overlays, NewFilesGoToTheNewestThatTakesThem) {
    Start(false, whole_tree | Add::WRITE_HERE);
    ASSERT_TRUE(add("base.pak"));
    EXPECT_TRUE(save("saves/slot.sav", "saved"));
    EXPECT_EQ(home_.read("game/saves/slot.sav"), "saved");
    EXPECT_EQ(load("saves/slot.sav"), "saved");
    EXPECT_EQ(fs::write_path(), home_ / "game/");
    EXPECT_FALSE(save("textures/sky.dds", "mine")) << "it could not be read back";
    EXPECT_EQ(fs::last_error().code, ALREADY_EXISTS);
    EXPECT_EQ(fs::last_error().text, "textures/sky.dds is held by base.pak, which is asked first.");
    EXPECT_EQ(why(save("sky.dds", "mine")), ALREADY_EXISTS) << "reading would find that by its end";
    EXPECT_FALSE(home_.exists("game/textures"));
    ASSERT_TRUE(add("mod", whole_tree | Add::WRITE_HERE));
    EXPECT_TRUE(save("new.txt", "new") && fs::mkdir("made"));
    EXPECT_TRUE(home_.exists("mod/new.txt") && home_.exists("mod/made"));
    EXPECT_TRUE(fs::rem_source((home_ / "mod").c_str()));
    EXPECT_TRUE(save("new.txt", "new") && home_.exists("game/new.txt"));
}

TEST_F(Overlays, APrefixLeadsEveryName) {
    Start(false, whole_tree | Add::WRITE_HERE);
    ASSERT_TRUE(add_at("mod", "Mods/Cool/", whole_tree | Add::WRITE_HERE));
    ASSERT_TRUE(add_at("base.pak", "packs"));
    // asked, who answers
    const std::pair<const char*, const char*> rows[] = {
        {"mods/cool/a.txt", "mod"},  {"COOL/A.TXT", "mod"},    {"mods/cool/deep/b.txt", "mod b"},
        {"deep/b.txt", "mod b"},     {"b.txt", "mod b"},       {"sky.dds", "sky"},
        {"packs/sky.dds", "(none)"}, {"mods/a.txt", "(none)"}, {"ol/a.txt", "mod"},
        {"x/deep/b.txt", "(none)"},
    };
    for (const auto& [asked, answer] : rows) EXPECT_EQ(load(asked), answer) << asked;
    EXPECT_TRUE(fs::exists("mods/cool/a.txt", FFSOpenFlags::WHOLE_NAME));
    EXPECT_FALSE(fs::exists("deep/b.txt", FFSOpenFlags::WHOLE_NAME));
    for (const char* name : {"deep/b.txt", "mods/cool/deep/b.txt"})
        EXPECT_EQ(fs::root_path(name), "mods/cool/deep/b.txt");
    EXPECT_TRUE(fs::full_path("mods/cool/a.txt").ends_with("/mod/a.txt"));
    fs::string native;
    EXPECT_TRUE(fs::native_path("cool/deep/b.txt", native) && native.ends_with("/mod/Deep/b.txt"));
    EXPECT_EQ(why(fs::native_path("missing.txt", native)), NOT_FOUND);
    EXPECT_EQ(why(fs::native_path("sky.dds", native)), UNSUPPORTED);
    EXPECT_NE(fs::search_dir("mods/cool/deep"), nullptr);
    EXPECT_THAT(take_names(fs::search("mods", nullptr, true, false)),
                ElementsAre("mods/cool/0/a.txt", "mods/cool/a.txt", "mods/cool/again/a.txt", "mods/cool/deep/b.txt"));
    EXPECT_THAT(take_names(fs::search("mods/cool", nullptr, false, false)), ElementsAre("mods/cool/a.txt"));
    EXPECT_EQ(fs::search("mods", nullptr, false, false), nullptr);
    EXPECT_THAT(take_names(fs::search_substring("DEE")), ElementsAre("mods/cool/deep/b.txt"))
        << "in a directory's name";
    EXPECT_EQ(fs::search_substring(nullptr), nullptr);
}

TEST_F(Overlays, WhatIsMadeBelowAPrefixGoesThere) {
    Start(false, whole_tree | Add::WRITE_HERE);
    ASSERT_TRUE(add_at("mod", "mods/cool", whole_tree | Add::WRITE_HERE));
    EXPECT_TRUE(save("Mods/Cool/New/c.txt", "c") && save("mods/cool/new/c.txt", "cc"));
    EXPECT_EQ(home_.read("mod/New/c.txt"), "cc");
    EXPECT_NE(fs::search_dir("mods/cool/new"), nullptr);
    EXPECT_TRUE(save("other.txt", "o") && home_.exists("game/other.txt")) << "whose name does not begin so";
    EXPECT_TRUE(fs::save_text_file("r", "mods/cool/replaced.txt", FFSOpenFlags::REPLACE));
    EXPECT_EQ(load("mods/cool/replaced.txt"), "r");
    EXPECT_TRUE(fs::rename("mods/cool/a.txt", "mods/cool/moved/a2.txt"));
    EXPECT_EQ(load("moved/a2.txt"), "mod");
    EXPECT_TRUE(fs::rem_file("mods/cool/deep/b.txt"));
    EXPECT_FALSE(home_.exists("mod/Deep/b.txt"));
    fs::rem_dir("mods/cool/new");
    EXPECT_FALSE(home_.exists("mod/New"));
    home_.write("mod/seen.txt", "seen");
    fs::refresh("mods/cool");
    EXPECT_EQ(load("mods/cool/seen.txt"), "seen");
    EXPECT_FALSE(add_at("mod", "elsewhere")) << "it is mounted";
    EXPECT_FALSE(add_at("late.pak", "../up"));
    EXPECT_FALSE(add_at("late.pak", (home_ / "full").c_str()));
    EXPECT_TRUE(fs::rem_source((home_ / "mod").c_str()));
    EXPECT_FALSE(fs::exists("mods/cool/seen.txt"));
}

}  // namespace

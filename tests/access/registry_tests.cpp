// What all sources together answer, and who is asked.
#include <engine/filesystem/sources/memory_archive.h>

#include <thread>

#include "engine/filesystem/registry/registry.h"
#include "tests/access/kit.h"

namespace {

using testing::FieldsAre;
using testing::IsEmpty;
using Flags = FFSAddSourceFlags;

class Registry : public OverMemory {};

TEST_F(Registry, AsksByTypeAndTheNewestOfATypeFirstAndTheFallbackLast) {
    fs::registry::State& state = fs::registry::state();
    {
        const fs::registry::ExclusiveGuard guard;
        state.fallback = std::make_unique<MemorySource>("/fallback/", EFSSourceType::SPECIAL);
    }
    mount_memory("/Dir/", EFSSourceType::DIR);
    mount_memory("/root/", EFSSourceType::SPECIAL, Flags::AFTER_SAME_TYPE);
    for (const char* pack : {"/a.pak", "/b.pak"}) mount_memory(pack, EFSSourceType::PACK);
    for (const char* pack : {"/late.pak", "/last.pak"}) mount_memory(pack, EFSSourceType::PACK, Flags::AFTER_SAME_TYPE);
    mount_memory("/pls/", EFSSourceType::PLS);
    mount_memory("/new.pak", EFSSourceType::PACK);
    EXPECT_THAT(mounted_sources(), ElementsAre("/pls/", "/new.pak", "/b.pak", "/a.pak", "/late.pak", "/last.pak",
                                               "/root/", "/dir/", "/fallback/"));
    EXPECT_STREQ(fs::write_path(), "/pls/");
    EXPECT_FALSE(fs::source_exists("/fallback/") || fs::rem_source(state.fallback.get()));
    EXPECT_TRUE(fs::source_exists("/dir/") && fs::source_exists("/DIR/"));
    for (const char* other : {"/dir", "\\dir\\", "/dir/.", "", static_cast<const char*>(nullptr)})
        EXPECT_FALSE(fs::source_exists(other)) << "directories are taken as they are written";
}

TEST_F(Registry, GivesASourceBackWithoutDestroyingItAndForgetsItsTree) {
    MemorySource source("/x/", EFSSourceType::DIR, Flags::INDEX_NAMES);  // nobody could destroy it
    source.tree.set_name("tree");
    source.add("maps/big/a.txt", "");
    mount_memory("/hidden/")->add("secret/a.txt", "");
    EXPECT_FALSE(fs::rem_source(&source));
    for (int i = 0; i < 2; ++i) fs::add_source(&source, Flags::INDEX_NAMES);
    EXPECT_THAT(mounted_sources(), ElementsAre("/x/", "/hidden/"));
    ASSERT_NE(fs::search_dir("Maps\\BIG"), nullptr);
    EXPECT_STREQ(fs::search_dir("Maps\\BIG")->name(), "big");
    EXPECT_TRUE(fs::search_dir("secret") == nullptr && fs::search_dir(nullptr) == nullptr);
    EXPECT_STREQ(fs::search_dir("")->name(), "tree");  // an index without a name takes the first tree's
    EXPECT_TRUE(fs::rem_source(&source) && fs::rem_source("/hidden/"));
    EXPECT_FALSE(fs::rem_source(&source) || fs::rem_source(nullptr));
    EXPECT_THAT(mounted_sources(), IsEmpty());
    EXPECT_EQ(fs::search_dir("maps"), nullptr);
    EXPECT_STREQ(fs::search_dir("")->name(), "");
    fs::add_source(static_cast<CFSSource*>(nullptr), Flags::NONE);
    EXPECT_STREQ(fs::write_path(), "");
}

TEST_F(Registry, TellsWhoHoldsAName) {
    mount_memory("/a/")->add("x/y.txt", "");
    MemorySource* const shield = mount_memory("/b/", EFSSourceType::SPECIAL, Flags::PROTECTED);
    shield->add("x/y.txt", "");
    shield->is_writable = false;
    shield->is_shielding = true;
    mount_memory("/c/");
    ztl::vector<SFsSourceInfo> holders(3);
    fs::find_holders("X\\Y.txt", holders);
    EXPECT_THAT(holders, ElementsAre(FieldsAre("/b/", "", EFSSourceType::SPECIAL, Flags::PROTECTED, false, true, 0u),
                                     FieldsAre("/a/", "", EFSSourceType::DIR, Flags::NONE, true, false, 0u)));
    fs::find_holders(nullptr, holders);
    EXPECT_EQ(holders.size(), 0u);
}

/// Asks the file system for another name while it is being asked for one itself.
class AskingSource : public MemorySource {
public:
    using MemorySource::MemorySource;
    SFsFile* open_read(const fs::path& p, FFSOpenFlags::FLAGS flags) override {
        // A writer that waits meanwhile goes before new readers, and would wait for this one for ever.
        writers.emplace_back([] {
            fs::mark_installed(true);
            EXPECT_EQ(fs::last_error().code, NONE) << "the lock is held by another thread";
        });
        std::this_thread::yield();
        for (int i = 0; i < 1000; ++i) heard = fs::exists("other.txt") && heard;
        EXPECT_FALSE(fs::rem_file("other.txt") || fs::create_server_archive(nullptr, 0) || fs::get_server_archive());
        EXPECT_EQ(fs::last_error().code, INVALID_ARGUMENT);
        return MemorySource::open_read(p, flags);
    }
    bool heard = true;
    std::vector<std::thread> writers;
};

TEST_F(Registry, ASourceMayAskForNamesWhileItIsAsked) {
    auto* const source = new AskingSource("/asking/");
    for (const char* name : {"x.txt", "other.txt"}) source->add(name, "");
    fs::add_source(source, Flags::NONE);
    for (int round = 0; round < 20; ++round) EXPECT_EQ(load("x.txt"), "");
    for (std::thread& writer : source->writers) writer.join();
    EXPECT_TRUE(source->heard);
    EXPECT_EQ(source->content("other.txt"), "");
}

TEST_F(Registry, EachThreadHasItsOwnLastError) {
    mount_memory("/a/");
    EXPECT_FALSE(fs::rem_file("mine.txt"));
    std::thread([] {
        EXPECT_EQ(fs::last_error().code, NONE);
        EXPECT_FALSE(fs::rename("theirs.txt", "a|b"));
    }).join();
    EXPECT_EQ(fs::last_error().path, "mine.txt");
}

class Search : public OverMemory {};

TEST_F(Search, JoinsEverySourceIntoSortedUniqueNames) {
    EXPECT_EQ(fs::search(nullptr, nullptr, true, false), nullptr);
    MemorySource* const one = mount_memory("/one/");
    for (const char* name : {"b.txt", "maps/a.txt", "maps/deep/c.txt", "maps/x.bin"}) one->add(name, "");
    MemorySource* const two = mount_memory("/two/", EFSSourceType::DIR, Flags::INDEX_NAMES);
    for (const char* name : {"maps/a.txt", "maps/z.txt", "\xE4.txt"}) two->add(name, "");
    EXPECT_THAT(take_names(fs::search(nullptr, nullptr, false, false)),
                ElementsAre("b.txt", "maps/a.txt", "maps/deep/c.txt", "maps/x.bin", "maps/z.txt", "\xE4.txt"));
    EXPECT_THAT(take_names(fs::search("Maps\\", "*.TXT", false, false)), ElementsAre("maps/a.txt", "maps/z.txt"));
    EXPECT_THAT(take_names(fs::search("maps", "?.txt", true, false)),
                ElementsAre("maps/a.txt", "maps/deep/c.txt", "maps/z.txt"));
    EXPECT_THAT(take_names(fs::search("", "", false, false)), ElementsAre("b.txt", "\xE4.txt"));
    EXPECT_THAT(take_names(fs::search("maps", nullptr, false, true)), ElementsAre("maps/a.txt", "maps/z.txt"));
    EXPECT_EQ(fs::search("maps", "*.none", true, false), nullptr);
    EXPECT_EQ(fs::search(std::string(5000, 'd').c_str(), nullptr, true, false), nullptr);
    EXPECT_THAT(take_names(fs::search_substring("DEE")), ElementsAre("maps/deep/c.txt")) << "in a directory's name";
    EXPECT_EQ(fs::search_substring(nullptr), nullptr);
}

TEST_F(Search, ListsTheNativeNamesSourceBySource) {
    mount_memory("/two/")->add("b.txt", "");
    MemorySource* const one = mount_memory("/one/");
    for (const char* name : {"dir/b.txt", "a.txt"}) one->add(name, "");
    one->add(std::string(258, 'n'), "");
    ztl::vector<fs::string> names = {"kept"};
    fs::get_file_list(names);
    EXPECT_THAT(names, ElementsAre("kept", "/one/a.txt", "/one/dir/b.txt", "", "/two/b.txt"));
}

TEST_F(Search, RefreshAsksTheSourcesConcernedAndRebuildsTheIndex) {
    MemorySource* const one = mount_memory("/data/one/", EFSSourceType::DIR, Flags::INDEX_NAMES);
    MemorySource* const pack = mount_memory("/data/p.pak", EFSSourceType::PACK);
    one->add("maps/x.txt", "");
    pack->has_tree = false;
    EXPECT_EQ(fs::search_dir("maps"), nullptr);
    fs::refresh();
    EXPECT_NE(fs::search_dir("maps"), nullptr);
    for (const char* path : {"/Data\\ONE/", "/data/p.pak", "Maps/", "none", "", "/", ".."}) fs::refresh(path);
    fs::refresh(nullptr);
    EXPECT_THAT(one->refreshed, ElementsAre("everything", "everything", "maps"));
    EXPECT_THAT(pack->refreshed, ElementsAre("everything", "everything"));
}

TEST_F(Search, TellsOfNamesThatMissTheirOverride) {
    MemorySource* const base = mount_memory("/base/");
    for (const char* name : {"a/x.dds", "a/y.dds", "b/z.txt"}) base->add(name, "");
    MemorySource* const patch = mount_memory("/patch/");
    for (const char* name : {"a/x.dds", "wrong/y.dds", "wrong/z.txt"}) patch->add(name, "");
    ztl::vector<fs::string> lines;
    fs::find_duplicates(lines, ".dds");
    EXPECT_THAT(
        lines, ElementsAre("0. wrong/y.dds", "1. a/y.dds (different path when overriding in other filesystem source)"));
    lines.clear();
    fs::find_duplicates(lines, nullptr);
    EXPECT_EQ(lines.size(), 4u);
}

}  // namespace

#include "tests/access/kit.h"

namespace {

using Flags = FFSAddSourceFlags;

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

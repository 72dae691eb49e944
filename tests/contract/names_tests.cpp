#include <engine/filesystem/contract/names.h>

#include <gtest/gtest.h>

#include <random>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "engine/filesystem/contract/name_list.h"
#include "tests/log/log_fixture.h"

namespace {

/// Every directory below `node`, in order, as a path.
std::vector<std::string> paths_below(const fs::idir& node, const std::string& lead = "") {
    std::vector<std::string> out;
    for (const fs::idir* child = node.first_child(); child != nullptr; child = child->next_sibling()) {
        EXPECT_EQ(child->parent(), &node);
        out.push_back(lead + child->name());
        for (const std::string& path : paths_below(*child, lead + child->name() + "/")) out.push_back(path);
    }
    return out;
}

TEST(Dir, AddsWhatIsMissingInOrderAndMergesEveryDirectoryOnce) {
    fs::dir one, other;
    fs::dir* const x = one.add_path("b/x/");
    EXPECT_TRUE(one.add_path("//b//x") == x && one.find("b/x/") == x);
    for (const fs::dir* self : {one.add_path(""), one.add_path(nullptr), one.find(nullptr)}) EXPECT_EQ(self, &one);
    for (const char* missing : {"b/y", "B"}) EXPECT_EQ(one.find(missing), nullptr);
    one.add_path("a/b");
    for (const char* path : {"a/c/d", "e", "a/b/f"}) other.add_path(path);
    for (const fs::dir* from : {&other, &other, &one}) one.merge(*from);
    one.find("a")->merge(one);  // its own ancestor: refused, since it would never end
    EXPECT_EQ(paths_below(one), (std::vector<std::string>{"b", "b/x", "a", "a/b", "a/b/f", "a/c", "a/c/d", "e"}));
    one.set_name("data");
    one.clear();
    EXPECT_STREQ(one.name(), "data");
    EXPECT_EQ(one.first_child(), nullptr);
    one.set_name(nullptr);
    EXPECT_STREQ(one.name(), "");
}

TEST(Dir, AgreesWithASetOfPathsThroughManyChanges) {
    std::mt19937 random(7);
    fs::dir root;
    std::set<std::string> model;
    for (int round = 0; round < 20000; ++round) {
        const std::string top = "t" + std::to_string(random() % 60);
        const std::string path = top + "/s" + std::to_string(random() % 40);
        if (random() % 4 != 0) {
            root.add_path(path.c_str());
            model.insert({top, path});
        } else if (random() % 8 != 0) {
            root.remove(path.c_str());
            model.erase(path);
        } else {
            root.remove(top.c_str());
            std::erase_if(model, [&](const std::string& held) { return held == top || held.starts_with(top + "/"); });
        }
        const std::string asked = "t" + std::to_string(random() % 60) + "/s" + std::to_string(random() % 40);
        ASSERT_EQ(root.find(asked.c_str()) != nullptr, model.contains(asked)) << round;
    }
    ASSERT_NE(root.find("t50"), nullptr);
    root.find("t50")->set_name("new");
    root.add_path("more");
    EXPECT_EQ(root.find("t50"), nullptr);
    EXPECT_NE(root.find("new"), nullptr);
    root.remove("more");
    root.find("new")->set_name("t50");
    const std::vector<std::string> held = paths_below(root);
    EXPECT_EQ(std::set<std::string>(held.begin(), held.end()), model);
    EXPECT_EQ(held.size(), model.size());
}

TEST(Dir, HoldsHugeAndDeepTrees) {
    fs::dir wide;
    for (int i = 0; i < 100000; ++i) wide.add_path(std::to_string(i).c_str());
    EXPECT_STREQ(wide.find("99999")->name(), "99999");
    std::string path;
    for (int i = 0; i < 200000; ++i) path += "d/";
    fs::dir deep, copy;
    deep.add_path(path.c_str());
    copy.merge(deep);
    EXPECT_NE(copy.find(path.c_str()), nullptr);
}

struct DumpedDirectories : LogTest {};

TEST_F(DumpedDirectories, AreATreeWithDuplicatesMarked) {
    fs::dir root, deep;
    root.set_name("root");
    root.add_path("twin");
    root.add_path("other")->set_name("twin");
    std::string path;
    for (int i = 0; i < 3000; ++i) path += "d/";
    deep.add_path(path.c_str());
    _CLFilterSetMode(CLFilterMode::ALL_CONSOLE);
    DumpDirectories(nullptr, 1);
    DumpDirectories(&root, 1);
    ASSERT_EQ(console_lines.size(), 3u);
    const char* const ends[] = {"  root\r\n", "    twin\r\n",
                                "    twin (duplicated resource in the same filesystem source)\r\n"};
    for (std::size_t i = 0; i < 3; ++i) EXPECT_TRUE(console_lines[i].text.ends_with(ends[i])) << console_lines[i].text;
    DumpDirectories(&deep, -5);
}

TEST(NameMatches, FollowsStarsAndQuestionMarks) {
    const std::tuple<const char*, const char*, bool> rows[] = {
        {"a.txt", nullptr, true}, {"a.txt", "", true}, {"A.TXT", "*.TX?", true},  {"", "?", false},
        {"noext", "*.*", false},  {"a", "a**", true},  {"abcabd", "a*b*d", true}, {"abc", "abcd", false},
    };
    for (const auto& [name, mask, matches] : rows)
        EXPECT_EQ(fs::name_matches(name, mask), matches) << name << " against " << testing::PrintToString(mask);
    const std::string name(5000, 'a');
    std::string mask;  // so many stars that trying every length for each would not end
    for (int i = 0; i < 200; ++i) mask += "*a";
    EXPECT_FALSE(fs::name_matches(name, (mask + "b").c_str()));
    EXPECT_TRUE(fs::name_matches(name, mask.c_str()));
}

}  // namespace

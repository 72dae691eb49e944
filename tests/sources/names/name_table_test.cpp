// The table of names against the plain rule that it stands for: a list per name, searched from the front.
#include <gmock/gmock.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "engine/filesystem/sources/names/name_table.h"

namespace {

using fs::NameTable;

using NaiveFile = std::pair<std::string, std::string>;  // its directory and its name

struct NaiveTable {
    const NaiveFile* find(const std::string& dir, const std::string& name, bool whole) const {
        const auto matches = [&](const std::string& held) {
            if (whole) return held == (dir.empty() ? root : dir);
            return dir.empty() || (!held.empty() && (dir.ends_with(held) || held.ends_with(dir)));
        };
        const auto found = std::ranges::find_if(files, [&](const NaiveFile& file) {
            return file.second == name && matches(file.first.empty() ? root : file.first);
        });
        return found != files.end() ? &*found : nullptr;
    }
    std::string root;
    std::vector<NaiveFile> files;
};

std::string random_dir(std::mt19937& random, unsigned depth) {
    std::string dir;
    for (int i = static_cast<int>(random() % (depth + 1)); i > 0; --i) {
        for (int j = static_cast<int>(random() % 3); j >= 0; --j) dir += static_cast<char>('a' + random() % 2);
        dir += '/';
    }
    return dir;
}

NaiveFile as_naive(const NameTable& table, std::uint32_t file) {
    if (file == NameTable::none) return {"none", "none"};
    return {std::string(table.dir(file)), std::string(table.name(file))};
}

void expect_same_answers(const NameTable& table, const NaiveTable& naive, const std::string& dir,
                         const std::string& name) {
    for (const bool whole : {false, true}) {
        const NaiveFile* const expected = naive.find(dir, name, whole);
        const std::uint32_t found = whole ? table.find_exact(dir, name) : table.find(dir, name);
        EXPECT_EQ(as_naive(table, found), expected ? *expected : as_naive(table, NameTable::none))
            << "query " << dir << name << (whole ? " as a whole" : "");
    }
}

TEST(NameTable, AnswersAsTheLinearRuleDoesWhateverIsAddedAndRemoved) {
    for (unsigned seed = 0; seed < 30; ++seed) {
        std::mt19937 random(seed);
        const std::string root = seed % 3 == 0 ? "" : "/a/b/";
        const unsigned names = seed % 2 == 0 ? 1 : 40;
        NameTable table(root);
        NaiveTable naive{root, {}};
        for (int step = 0; step < 1500; ++step) {
            const std::string dir = random_dir(random, 4);
            const std::string name = "n" + std::to_string(random() % names);
            if (seed % 5 == 0 || random() % 4 != 0) {  // some tables only grow
                table.add(table.intern_dir(dir), name, 1);
                naive.files.emplace_back(dir, name);
            } else if (const std::uint32_t file = table.find(dir, name); file != NameTable::none) {
                naive.files.erase(std::find(naive.files.begin(), naive.files.end(), as_naive(table, file)));
                table.remove(file);
                table.compact();
            }
            const std::string lead = step % 50 == 0 ? "/" : "";  // at times the whole root
            expect_same_answers(table, naive, lead + random_dir(random, 5), name);
        }
        ASSERT_EQ(table.size(), naive.files.size());
        std::size_t index = 0;
        for (std::uint32_t file = table.first(); file != NameTable::none; file = table.next(file))
            EXPECT_EQ(as_naive(table, file), naive.files[index++]);
    }
}

TEST(NameTable, GivesBackTheRoomOfRemovedFilesAndKeepsOrderAndSpelling) {
    NameTable table("/r/");
    constexpr std::uint32_t count = 20000;
    for (std::uint32_t i = 0; i < count; ++i) table.add(table.intern_dir("D/"), "file" + std::to_string(i), i);
    const std::size_t full = table.bytes();
    EXPECT_LE(full, count * (60 + sizeof "file9999"));
    table.add(table.intern_dir("D/"), "Big.DDS", count);
    for (std::uint32_t i = 0; i < count; ++i) {
        if (i % 10 == 0) continue;
        table.remove(table.find("d/", "file" + std::to_string(i)));
        table.compact();
    }
    EXPECT_LT(table.bytes(), full / 2);
    std::uint32_t file = table.first();
    for (std::uint32_t i = 0; i < count; i += 10, file = table.next(file)) {
        ASSERT_EQ(table.name(file), "file" + std::to_string(i));
        ASSERT_EQ(table.value(file), i);
    }
    EXPECT_EQ(table.find("d/", "big.dds"), file);
    EXPECT_EQ(table.spelled_dir(file), "D/");
    EXPECT_EQ(table.spelled_name(file), "Big.DDS");
    EXPECT_EQ(table.next(file), NameTable::none);
    EXPECT_EQ(table.find("d/", "Big.DDS"), NameTable::none) << "names compare byte by byte";
}

}  // namespace

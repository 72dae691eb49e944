// The table of names against the plain rule that it stands for: a list per name, searched from the front.
#include <gmock/gmock.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "engine/filesystem/sources/names/name_table.h"

namespace {

using fs::NameTable;

struct NaiveTable {
    using File = std::pair<std::string, std::string>;  // its directory and its name

    const File* find(const std::string& dir, const std::string& name, bool whole) const {
        const auto found = std::ranges::find_if(files, [&](const File& file) {
            const std::string& held = file.first.empty() ? root : file.first;
            if (file.second != name) return false;
            if (whole) return held == (dir.empty() ? root : dir);
            return dir.empty() || (!held.empty() && (dir.ends_with(held) || held.ends_with(dir)));
        });
        return found != files.end() ? &*found : nullptr;
    }
    std::string root;
    std::vector<File> files;
};

std::string random_dir(std::mt19937& random, unsigned depth) {
    std::string dir;
    for (int i = static_cast<int>(random() % (depth + 1)); i > 0; --i) {
        for (int j = static_cast<int>(random() % 3); j >= 0; --j) dir += static_cast<char>('a' + random() % 2);
        dir += '/';
    }
    return dir;
}

NaiveTable::File as_naive(const NameTable& table, std::uint32_t file) {
    if (file == NameTable::none) return {"none", "none"};
    return {std::string(table.dir(file)), std::string(table.name(file))};
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
            const std::string query = (step % 50 == 0 ? "/" : "") + random_dir(random, 5);  // at times the whole root
            for (const bool whole : {false, true}) {
                const NaiveTable::File* const expected = naive.find(query, name, whole);
                EXPECT_EQ(as_naive(table, whole ? table.find_exact(query, name) : table.find(query, name)),
                          expected ? *expected : as_naive(table, NameTable::none))
                    << "query " << query << name << (whole ? " as a whole" : "");
            }
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
        ASSERT_EQ(table.value(file), i);
        ASSERT_EQ(table.find("d/", "file" + std::to_string(i)), file);
    }
    EXPECT_EQ(table.find("d/", "big.dds"), file);
    EXPECT_EQ(std::string(table.spelled_dir(file)).append(table.spelled_name(file)), "D/Big.DDS");
    EXPECT_TRUE(table.next(file) == NameTable::none && table.find("d/", "Big.DDS") == NameTable::none);
}

}  // namespace

// The table of names against the plain rule that it stands for: a list per name, searched from the front.
#include <gmock/gmock.h>

#include <random>
#include <string>
#include <vector>

#include "engine/filesystem/sources/names/name_table.h"

namespace {

using fs::NameTable;

struct NaiveFile {
    std::string dir;
    std::string name;
    bool operator==(const NaiveFile&) const = default;
};

bool matches(const std::string& a, const std::string& b) {
    if (a.empty() || b.empty()) return a.empty() && b.empty();
    const std::string& longer = a.size() < b.size() ? b : a;
    const std::string& shorter = a.size() < b.size() ? a : b;
    return longer.compare(longer.size() - shorter.size(), shorter.size(), shorter) == 0;
}

class NaiveTable {
public:
    explicit NaiveTable(std::string root) : root_(std::move(root)) {}
    void add(NaiveFile file) { files_.push_back(std::move(file)); }
    void remove(const NaiveFile& file) { files_.erase(std::find(files_.begin(), files_.end(), file)); }
    const NaiveFile* find(const std::string& dir, const std::string& name) const {
        for (const NaiveFile& file : files_) {
            if (file.name != name) continue;
            if (dir.empty() || matches(dir, file.dir.empty() ? root_ : file.dir)) return &file;
        }
        return nullptr;
    }
    std::vector<NaiveFile> files_;

private:
    std::string root_;
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

void expect_same_answer(const NameTable& table, const NaiveTable& naive, const std::string& dir,
                        const std::string& name) {
    const NaiveFile* expected = naive.find(dir, name);
    EXPECT_EQ(as_naive(table, table.find(dir, name)), expected ? *expected : (NaiveFile{"none", "none"}))
        << "query " << dir << name;
}

TEST(NameTable, AnswersAsTheLinearRuleDoesWhateverIsAddedAndRemoved) {
    for (unsigned seed = 0; seed < 30; ++seed) {
        std::mt19937 random(seed);
        const std::string root = seed % 3 == 0 ? "" : "/a/b/";
        const unsigned names = seed % 2 == 0 ? 1 : 40;
        NameTable table(root);
        NaiveTable naive(root);
        for (int step = 0; step < 1500; ++step) {
            const std::string dir = random_dir(random, 4);
            const std::string name = "n" + std::to_string(random() % names);
            if (seed % 5 == 0 || random() % 4 != 0) {  // some tables only grow
                table.add(table.intern_dir(dir), name, 1);
                naive.add({dir, name});
            } else if (const std::uint32_t file = table.find(dir, name); file != NameTable::none) {
                naive.remove(as_naive(table, file));
                table.remove(file);
                table.compact();
            }
            expect_same_answer(table, naive, random_dir(random, 5), name);
        }
        ASSERT_EQ(table.size(), naive.files_.size());
        std::size_t index = 0;
        for (std::uint32_t file = table.first(); file != NameTable::none; file = table.next(file)) {
            EXPECT_EQ(as_naive(table, file), naive.files_[index++]);
        }
    }
}

TEST(NameTable, FindsExactlyOneDirectoryWhereOthersMatchBySuffix) {
    NameTable table("/root/");
    for (const int count : {1, 20}) {  // few of one name, then many
        for (int i = 0; i < count; ++i) table.add(table.intern_dir("x" + std::to_string(i) + "/b/"), "f", 0);
        table.add(table.intern_dir("b/"), "f", 0);
        EXPECT_EQ(table.dir(table.find_exact("b/", "f")), "b/");
        EXPECT_EQ(table.dir(table.find("b/", "f")), "x0/b/") << "the first added wins";
        EXPECT_EQ(table.find_exact("/b/", "f"), NameTable::none);
        EXPECT_EQ(table.find_exact("", "f"), NameTable::none);
    }
    const std::uint32_t at_root = table.add(table.intern_dir(""), "f", 0);
    EXPECT_EQ(table.find_exact("", "f"), at_root);
    EXPECT_EQ(table.find("/root/", "f"), at_root) << "an empty directory is compared as the root";
}

TEST(NameTable, KeepsTheSpellingOfTheDiskBesideTheLowerCaseName) {
    NameTable table;
    const std::uint32_t file = table.add(table.intern_dir("Maps/Old/"), "Big.DDS", 7);
    EXPECT_EQ(table.find("maps/old/", "big.dds"), file);
    EXPECT_EQ(table.spelled_dir(file), "Maps/Old/");
    EXPECT_EQ(table.spelled_name(file), "Big.DDS");
    EXPECT_EQ(table.dir(file), "maps/old/");
    EXPECT_EQ(table.value(file), 7u);
    EXPECT_EQ(table.find("maps/old/", "Big.DDS"), NameTable::none) << "names compare byte by byte";
}

TEST(NameTable, GivesBackTheRoomOfRemovedFilesAndKeepsTheOrder) {
    NameTable table("/r/");
    constexpr std::uint32_t count = 20000;
    for (std::uint32_t i = 0; i < count; ++i) table.add(table.intern_dir("d/"), "file" + std::to_string(i), i);
    const std::size_t full = table.bytes();
    EXPECT_LE(full, count * (60 + sizeof "file9999"));
    for (std::uint32_t i = 0; i < count; ++i) {
        if (i % 10 == 0) continue;
        table.remove(table.find("d/", "file" + std::to_string(i)));
        table.compact();
    }
    EXPECT_LT(table.bytes(), full / 2);
    std::uint32_t expected = 0;
    for (std::uint32_t file = table.first(); file != NameTable::none; file = table.next(file), expected += 10) {
        ASSERT_EQ(table.name(file), "file" + std::to_string(expected));
        ASSERT_EQ(table.value(file), expected);
    }
    EXPECT_EQ(expected, count);
}

}  // namespace

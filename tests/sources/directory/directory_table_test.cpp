// The file table against the plain rule that it stands for: a list per name, searched from the front.
#include <gmock/gmock.h>

#include <memory>
#include <random>
#include <string>
#include <vector>

#include "engine/filesystem/sources/directory/file_table.h"

namespace {

using fs::FileTable;

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

std::string random_dir(std::mt19937& random, int depth) {
    std::string dir;
    for (int i = static_cast<int>(random() % (depth + 1)); i > 0; --i) {
        for (int j = static_cast<int>(random() % 3); j >= 0; --j) dir += static_cast<char>('a' + random() % 2);
        dir += '/';
    }
    return dir;
}

NaiveFile as_naive(const FileTable& table, std::uint32_t file) {
    if (file == FileTable::none) return {"none", "none"};
    return {std::string(table.dir(file)), std::string(table.name(file))};
}

void expect_same_answer(const FileTable& table, const NaiveTable& naive, const std::string& dir,
                        const std::string& name) {
    const NaiveFile* expected = naive.find(dir, name);
    EXPECT_EQ(as_naive(table, table.find(dir, name)), expected ? *expected : (NaiveFile{"none", "none"}))
        << "query " << dir << name;
}

TEST(FileTable, AnswersAsTheLinearRuleDoesWhateverIsAddedAndRemoved) {
    for (unsigned seed = 0; seed < 30; ++seed) {
        std::mt19937 random(seed);
        const std::string root = seed % 3 == 0 ? "" : "/a/b/";
        const int names = seed % 2 == 0 ? 1 : 40;
        auto table = std::make_unique<FileTable>();
        ASSERT_TRUE(table->set_root(root));
        NaiveTable naive(root);
        for (int step = 0; step < 1500; ++step) {
            const std::string dir = random_dir(random, 4);
            const std::string name = "n" + std::to_string(random() % names);
            if (seed % 5 == 0 || random() % 4 != 0) {  // some tables only grow
                ASSERT_NE(table->add(table->intern_dir(dir), name, true), FileTable::none);
                naive.add({dir, name});
            } else if (const std::uint32_t file = table->find(dir, name); file != FileTable::none) {
                naive.remove(as_naive(*table, file));
                table->remove(file);
                FileTable::compact(table);
            }
            if (random() % 300 == 0) table->settle();
            expect_same_answer(*table, naive, random_dir(random, 5), name);
        }
        ASSERT_EQ(table->size(), naive.files_.size());
        std::size_t index = 0;
        for (std::uint32_t file = table->first(); file != FileTable::none; file = table->next(file)) {
            EXPECT_EQ(as_naive(*table, file), naive.files_[index++]);
        }
    }
}

TEST(FileTable, FindsExactlyOneDirectoryWhereOthersMatchBySuffix) {
    FileTable table;
    ASSERT_TRUE(table.set_root("/root/"));
    for (const int count : {1, 20}) {  // few of one name, then many
        for (int i = 0; i < count; ++i) table.add(table.intern_dir("x" + std::to_string(i) + "/b/"), "f", true);
        table.add(table.intern_dir("b/"), "f", true);
        EXPECT_EQ(table.dir(table.find_exact("b/", "f")), "b/");
        EXPECT_EQ(table.dir(table.find("b/", "f")), "x0/b/") << "the first inserted wins";
        EXPECT_EQ(table.find_exact("/b/", "f"), FileTable::none);
        EXPECT_EQ(table.find_exact("/root/", "f"), FileTable::none);
    }
    const std::uint32_t at_root = table.add(table.intern_dir(""), "f", true);
    EXPECT_EQ(table.find_exact("", "f"), at_root);
    EXPECT_EQ(table.find("/root/", "f"), at_root) << "an empty directory is compared as the root";
    EXPECT_EQ(table.find_exact("/root/", "f"), FileTable::none);
}

TEST(FileTable, KeepsTheSpellingOfTheDiskBesideTheLowerCaseName) {
    FileTable table;
    const std::uint32_t file = table.add(table.intern_dir("Maps/Old/"), "Big.DDS", false);
    EXPECT_EQ(table.find("maps/old/", "big.dds"), file);
    EXPECT_EQ(table.spelled_dir(file), "Maps/Old/");
    EXPECT_EQ(table.spelled_name(file), "Big.DDS");
    EXPECT_EQ(table.dir(file), "maps/old/");
    EXPECT_FALSE(table.is_installed(file));
    table.set_installed(file, true);
    EXPECT_TRUE(table.is_installed(file));
    EXPECT_EQ(table.find("maps/old/", "Big.DDS"), FileTable::none) << "names compare byte by byte";
}

TEST(FileTable, TellsTheBucketBySignedBytes) {
    EXPECT_EQ(FileTable::bucket(""), 1u);
    EXPECT_EQ(FileTable::bucket("a"), (0x100001u * 33 ^ 0x61u) & 0xFFFF);
    EXPECT_EQ(FileTable::bucket("\xE9"), (0x100001u * 33 ^ 0xFFFFFFE9u) & 0xFFFF);
}

TEST(FileTable, GivesBackTheRoomOfRemovedFilesAndKeepsTheOrder) {
    auto table = std::make_unique<FileTable>();
    ASSERT_TRUE(table->set_root("/r/"));
    for (int i = 0; i < 20000; ++i) table->add(table->intern_dir("d/"), "file" + std::to_string(i), i % 3 == 0);
    const std::size_t full = table->bytes();
    for (int i = 0; i < 20000; ++i) {
        if (i % 10 == 0) continue;
        table->remove(table->find("d/", "file" + std::to_string(i)));
        FileTable::compact(table);
    }
    EXPECT_LT(table->bytes(), full / 2);
    int expected = 0;
    for (std::uint32_t file = table->first(); file != FileTable::none; file = table->next(file), expected += 10) {
        ASSERT_EQ(table->name(file), "file" + std::to_string(expected));
        ASSERT_EQ(table->is_installed(file), expected % 3 == 0);
    }
    EXPECT_EQ(expected, 20000);
}

}  // namespace

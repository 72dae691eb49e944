// Names of a pack against the plain rule that they are found by: walk the sorted files, take the first that matches.
#include <algorithm>
#include <string>
#include <vector>

#include "engine/filesystem/sources/pack/directory.h"
#include "engine/filesystem/sources/pack/table.h"
#include "fixture.h"

namespace {

using Strings = std::vector<std::string>;

struct File {
    std::string dir;
    std::string name;
};

bool comes_before(const File& a, const File& b) { return a.name != b.name ? a.name < b.name : a.dir < b.dir; }

bool ends_match(const std::string& a, const std::string& b) {
    const std::size_t length = std::min(a.size(), b.size());
    return a.compare(a.size() - length, length, b, b.size() - length, length) == 0;
}

/// Full name of the first match, "" when there is none.
std::string plain_find(const std::vector<File>& sorted, const std::string& dir, const std::string& name) {
    for (const File& file : sorted) {
        if (file.name != name) continue;
        if (dir.empty() || (!file.dir.empty() && ends_match(file.dir, dir))) return file.dir + file.name;
    }
    return "";
}

/// A table over these files, in the order given.
class Table {
public:
    explicit Table(const std::vector<File>& files) {
        Strings dirs{""};
        for (const File& file : files) {
            if (std::find(dirs.begin(), dirs.end(), file.dir) == dirs.end()) dirs.push_back(file.dir);
        }
        for (const std::string& dir : dirs) append(directory_.dir_text, dir);
        std::size_t at = 0;
        for (const std::string& dir : dirs) {
            directory_.dirs.emplace_back(directory_.dir_text.data() + at, dir.size());
            at += dir.size();
        }
        for (const File& file : files) {
            fs::PackRecord record{};
            record.name_offset = static_cast<std::uint32_t>(directory_.names.size());
            record.name_length = static_cast<std::uint16_t>(file.name.size());
            record.dir = static_cast<std::uint16_t>(std::find(dirs.begin(), dirs.end(), file.dir) - dirs.begin());
            directory_.names += file.name.empty() ? std::string(1, '\0') : file.name;
            directory_.records.push_back(record);
        }
        table_.build(std::move(directory_));
    }

    std::string find(const std::string& dir, const std::string& name) const {
        const auto found = table_.find(dir, name);
        return found ? std::string(table_.dir(*found)) + std::string(table_.name(*found)) : "";
    }
    const fs::PackTable& operator*() const { return table_; }

private:
    static void append(std::vector<char>& all, const std::string& text) {
        all.insert(all.end(), text.begin(), text.end());
    }

    fs::PackDirectory directory_;
    fs::PackTable table_;
};

std::string random_dir(std::mt19937& random) {
    static const Strings parts = {"a/", "b/", "ab/", "ba/", "a", "/", "x/a/", "b"};
    std::string dir;
    for (std::uint32_t i = random() % 5; i > 0; --i) dir += parts[random() % parts.size()];
    return dir.empty() ? dir : dir + (dir.back() == '/' ? "" : "/");
}

TEST(PackTable, AnswersLikeAWalkThroughTheSortedFiles) {
    for (std::uint32_t seed = 0; seed < 60; ++seed) {
        std::mt19937 random(seed);
        std::vector<File> files;
        const std::uint32_t names = 1 + random() % 12;
        for (std::uint32_t i = 2 + random() % 150; i > 0; --i) {
            files.push_back({random_dir(random), "longer_than_eight" + std::to_string(random() % names)});
        }
        if (seed % 2 == 0) files.push_back({random_dir(random), ""});
        const Table table(files);
        std::stable_sort(files.begin(), files.end(), comes_before);
        for (int query = 0; query < 400; ++query) {
            const File& some = files[random() % files.size()];
            const std::string dir = query % 2 == 0 ? some.dir : random_dir(random);
            ASSERT_EQ(table.find(dir, some.name), plain_find(files, dir, some.name))
                << "seed " << seed << " dir " << dir;
        }
        EXPECT_EQ(table.find("", "longer_than_eight"), "");
        EXPECT_EQ(table.find("a/", "other"), "");
    }
}

TEST(PackTable, HoldsAtMostSixtyBytesAnEntryBesideItsNames) {
    for (const bool one_name : {false, true}) {
        std::vector<File> files;
        std::size_t texts = 0;
        for (int i = 0; i < 20000; ++i) {
            const std::string number = std::to_string(i);
            files.push_back({one_name ? "d" + std::to_string(i % 700) + "/" : "dir/", one_name ? "name" : number});
            texts += files.back().name.size();
        }
        const Table table(files);
        EXPECT_LE((*table).memory(), files.size() * 60 + texts) << one_name;
    }
}

}  // namespace

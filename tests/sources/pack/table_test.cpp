// Names of a pack against the plain rule that they are found by: walk the sorted files, take the first that matches.
#include <algorithm>
#include <string>
#include <vector>

#include "engine/filesystem/sources/pack/table.h"
#include "fixture.h"

namespace {

struct File {
    std::string name;
    std::string dir;
    auto operator<=>(const File&) const = default;
};

/// Full name of the first match, "" when there is none.
std::string plain_find(const std::vector<File>& sorted, const std::string& dir, const std::string& name) {
    for (const File& file : sorted) {
        const bool ends_match = file.dir.ends_with(dir) || (!file.dir.empty() && dir.ends_with(file.dir));
        if (file.name == name && ends_match) return file.dir + file.name;
    }
    return "";
}

fs::PackTable build(const std::vector<File>& files) {
    fs::PackTableBuilder builder(files.size());
    for (const File& file : files) builder.add(file.dir, file.name, {});
    return builder.finish();
}

std::string find(const fs::PackTable& table, const std::string& dir, const std::string& name) {
    const std::uint32_t file = table.names.find(dir, name);
    if (file == fs::NameTable::none) return "";
    return std::string(table.names.dir(file)) + std::string(table.names.name(file));
}

std::string random_dir(std::mt19937& random) {
    static constexpr const char* parts[] = {"a/", "b/", "ab/", "ba/", "a", "/", "x/a/", "b"};
    std::string dir;
    for (std::uint32_t i = random() % 5; i > 0; --i) dir += parts[random() % 8];
    return dir.empty() || dir.back() == '/' ? dir : dir + "/";
}

TEST(PackTable, AnswersLikeAWalkThroughTheSortedFiles) {
    for (std::uint32_t seed = 0; seed < 60; ++seed) {
        std::mt19937 random(seed);
        std::vector<File> files;
        const std::uint32_t names = 1 + random() % 12;
        for (std::uint32_t i = 2 + random() % 150; i > 0; --i)
            files.push_back({"longer_than_eight" + std::to_string(random() % names), random_dir(random)});
        if (seed % 2 == 0) files.push_back({"", random_dir(random)});
        const fs::PackTable table = build(files);
        std::sort(files.begin(), files.end());
        for (int query = 0; query < 400; ++query) {
            const File& some = files[random() % files.size()];
            const std::string dir = query % 2 == 0 ? some.dir : random_dir(random);
            ASSERT_EQ(find(table, dir, some.name), plain_find(files, dir, some.name))
                << "seed " << seed << " dir " << dir;
        }
        EXPECT_EQ(find(table, "", "longer_than_eight"), "");
        EXPECT_EQ(find(table, "a/", "other"), "");
    }
}

TEST(PackTable, HoldsAboutSixtyBytesAnEntryBesideItsNames) {
    for (const bool one_name : {false, true}) {
        std::vector<File> files;
        std::size_t texts = 0;
        for (int i = 0; i < 20000; ++i) {
            files.push_back(
                {one_name ? "name" : std::to_string(i), one_name ? "d" + std::to_string(i % 700) + "/" : "dir/"});
            texts += files.back().name.size();
        }
        EXPECT_LE(build(files).memory(), files.size() * 61 + texts) << one_name;
    }
}

}  // namespace

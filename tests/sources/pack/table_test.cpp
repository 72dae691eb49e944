// The order of a pack's files, which a lookup's first match goes by (name_table_test.cpp), and the memory that they take.
#include <algorithm>
#include <string>
#include <tuple>
#include <vector>

#include "engine/filesystem/sources/pack/table.h"
#include "fixture.h"

namespace {

struct File {
    std::string name;
    std::string dir;
    std::uint32_t crc = 0;
    bool operator==(const File&) const = default;
};

fs::PackTable build(const std::vector<File>& files) {
    fs::PackTableBuilder builder(files.size());
    for (const File& file : files) builder.add(file.dir, file.name, {.crc = file.crc});
    return builder.finish();
}

TEST(PackTable, HasFilesInTheOrderOfNamesThenOfDirectoriesThenOfThePack) {
    std::mt19937 random(1);
    std::vector<File> files;
    for (std::uint32_t i = 0; i < 2000; ++i) {
        const std::string name = random() % 9 == 0 ? "" : "longer_than_eight" + std::to_string(random() % 100);
        const std::string dir = random() % 9 == 0 ? "" : std::string(random() % 4, 'a') + std::to_string(i % 7) + "/";
        files.push_back({name, dir, i});
    }
    fs::PackTable table = build(files);
    std::stable_sort(files.begin(), files.end(),
                     [](const File& a, const File& b) { return std::tie(a.name, a.dir) < std::tie(b.name, b.dir); });
    std::uint32_t at = table.names.first();
    for (const File& file : files) {
        const File found{std::string(table.names.name(at)), std::string(table.names.dir(at)), table.entry(at).crc};
        ASSERT_EQ(found, file) << file.dir << file.name;
        at = table.names.next(at);
    }
    EXPECT_EQ(at, fs::NameTable::none);
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
        EXPECT_LE(build(files).memory(), files.size() * 57 + texts) << one_name;
    }
}

}  // namespace

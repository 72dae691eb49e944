#include "engine/platform/directories.h"

#include <algorithm>
#include <chrono>
#include <random>
#include <thread>

#include "tests/platform/disk.h"

namespace {

using namespace platform;
using testing::ElementsAre;
using testing::IsEmpty;

class Directories : public disk::DiskTest {};

std::vector<std::string> names_of(const DirectoryListing& listing) {
    std::vector<std::string> names;
    for (const DirectoryItem& item : listing.items()) names.emplace_back(item.name, item.length);
    return names;
}

std::string folded(std::string text) {
    for (char& c : text) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
    }
    return text;
}

std::vector<std::string> naively_sorted(std::vector<std::string> names) {
    std::sort(names.begin(), names.end(), [](const std::string& a, const std::string& b) {
        return std::pair(folded(a), a) < std::pair(folded(b), b);
    });
    return names;
}

TEST(DirectoryListings, OrderNamesByFoldedBytesThenBytes) {
    std::mt19937 random(7);
    const std::string alphabet = "aAbBzZ_09[`{.@\x7f\x80\xC3\xFF";
    DirectoryListing listing;
    for (int round = 0; round < 300; ++round) {
        std::vector<std::string> names;
        const std::string beginning(random() % 20, 'p');
        for (std::size_t i = random() % 40; i > 0; --i) {
            std::string name = beginning;
            for (std::size_t n = 1 + random() % 12; n > 0; --n) name += alphabet[random() % alphabet.size()];
            if (random() % 4 == 0) name[0] = 'P';
            names.push_back(name);
        }
        if (round % 3 == 0) names = naively_sorted(names);
        listing.clear();
        for (const std::string& name : names) listing.add(name.c_str(), name.size(), {});
        listing.sort();
        ASSERT_EQ(names_of(listing), naively_sorted(names));
        for (const DirectoryItem& item : listing.items()) {
            ASSERT_EQ(item.is_lower_case, folded(item.name) == item.name) << item.name;
        }
    }
}

TEST(DirectoryListings, HoldMoreThanOneBlockAndAreReused) {
    DirectoryListing listing;
    for (int round = 0; round < 2; ++round) {
        listing.clear();
        for (int i = 999; i >= 0; --i) {
            const std::string name = std::to_string(1000 + i) + std::string(250, 'n');
            listing.add(name.c_str(), name.size(), {.is_directory = i % 2 == 0});
        }
        listing.sort();
        ASSERT_EQ(listing.items().size(), 1000u);
        EXPECT_EQ(listing.items()[7].name, "1007" + std::string(250, 'n'));
        EXPECT_FALSE(listing.items()[7].is_directory);
        EXPECT_TRUE(listing.items()[998].is_directory);
    }
}

TEST_F(Directories, ListFilesAndFoldersInOrder) {
    std::filesystem::create_directories("Data/beta");
    for (const char* name : {"Zeta", "alpha.txt", "Alpha2.txt", "#note"}) disk::put(std::string("Data/") + name, "");
    DirectoryListing listing;
    for (const char* path : {"Data", "data", "DATA/"}) {
        SCOPED_TRACE(path);
        ASSERT_TRUE(list_directory({path}, listing));
        EXPECT_THAT(names_of(listing), ElementsAre("#note", "alpha.txt", "Alpha2.txt", "beta", "Zeta"));
        EXPECT_TRUE(listing.items()[3].is_directory);
        EXPECT_FALSE(listing.items()[4].is_directory);
    }
    for (const char* path : {"missing", "data/alpha.txt", ""}) {
        EXPECT_FALSE(list_directory({path}, listing)) << path;
        EXPECT_THAT(listing.items(), IsEmpty());
    }
}

TEST_F(Directories, ListAndOpenThroughARoot) {
    std::filesystem::create_directories("Base/Sub");
    disk::put("Base/Sub/File", "content");
    const Root root = Root::open("BASE");
    const std::string full = path_to("base/sub/file");
    const char* const below = full.c_str() + full.size() - std::string("sub/file").size();
    EXPECT_TRUE(File::open(PathAt{full.c_str(), &root, below}, {}).valid());
    EXPECT_TRUE(get_attributes(PathAt{full.c_str(), &root, below}).has_value());
    DirectoryListing listing;
    const std::string base = path_to("Base/");
    ASSERT_TRUE(list_directory(PathAt{base.c_str(), &root, base.c_str() + base.size()}, listing));
    EXPECT_THAT(names_of(listing), ElementsAre("Sub"));
    DirectoryTimes times;
    EXPECT_TRUE(get_directory_times(PathAt{base.c_str(), &root, base.c_str() + base.size()}, times));
    EXPECT_GT(times.written, 0);
    EXPECT_FALSE(Root::open("missing").valid());
}

TEST_F(Directories, AreMadeOnceUnderAnyCase) {
    const auto outcome = [](bool done) { return done ? Failure::NONE : last_error().failure; };
    disk::put("file", "");
    EXPECT_EQ(outcome(create_directory("Sub")), Failure::NONE);
    EXPECT_EQ(outcome(create_directory("Sub")), Failure::ALREADY_EXISTS);
    EXPECT_EQ(outcome(create_directory("SUB")), Failure::ALREADY_EXISTS);
    EXPECT_EQ(outcome(create_directory("FILE")), Failure::ALREADY_EXISTS);
    EXPECT_EQ(outcome(create_directory("sub/Deep/")), Failure::NONE);
    EXPECT_EQ(outcome(create_directory("missing/deep")), Failure::NOT_FOUND);
    EXPECT_FALSE(create_directory(""));
    EXPECT_EQ(outcome(remove_directory("sub")), Failure::NOT_EMPTY);
    EXPECT_FALSE(remove_directory("file"));
    EXPECT_EQ(outcome(remove_directory("SUB/deep/")), Failure::NONE);
    EXPECT_EQ(outcome(remove_directory("sub")), Failure::NONE);
    EXPECT_EQ(outcome(remove_directory("sub")), Failure::NOT_FOUND);
    EXPECT_THAT(disk::names_in("."), ElementsAre("file"));
}

TEST_F(Directories, TellHowTheDiskSpellsAPath) {
    std::filesystem::create_directories("One/tWo");
    disk::put("One/tWo/File.TXT", "");
    const struct {
        const char* given;
        const char* spelled;
    } rows[] = {
        {"one/two/file.txt", "One/tWo/File.TXT"},
        {"ONE/TWO", "One/tWo"},
        {"one/", "One/"},
        {"ONE/two/Missing/FILE.TXT", "One/tWo/Missing/FILE.TXT"},
        {"Nothing/Here", "Nothing/Here"},
        {"one//two", "One//tWo"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.given);
        for (int again = 0; again < 2; ++again) {
            char path[path_buffer_size] = {};
            std::copy_n(row.given, std::string(row.given).size(), path);
            ASSERT_TRUE(resolve_case(path, path));
            EXPECT_STREQ(path, row.spelled);
        }
    }
    char out[path_buffer_size];
    EXPECT_FALSE(resolve_case(std::string(max_path_bytes + 1, 'a').c_str(), out));
    EXPECT_FALSE(resolve_case("", out));
}

TEST_F(Directories, AreToldApartByIdAndDatedByTheirNames) {
    std::filesystem::create_directories("one");
    std::filesystem::create_directories("two");
    disk::put("file", "");
    DirectoryId one;
    DirectoryId again;
    DirectoryId two;
    ASSERT_TRUE(get_directory_id("one", one) && get_directory_id("ONE", again) && get_directory_id("two", two));
    EXPECT_EQ(one, again);
    EXPECT_FALSE(one == two);
    EXPECT_FALSE(get_directory_id("file", one));
    DirectoryTimes before;
    DirectoryTimes after;
    EXPECT_FALSE(get_directory_times({"missing"}, before));
    EXPECT_FALSE(get_directory_times({"file"}, before));
    ASSERT_TRUE(get_directory_times({"one"}, before));
    for (int i = 0; i < 1000 && (after.written <= before.written || after.changed <= before.changed);
         ++i) {  // until the file system's clock ticks
        disk::put("one/file" + std::to_string(i), "");
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        ASSERT_TRUE(get_directory_times({"One"}, after));
    }
    EXPECT_GT(after.written, before.written);
    EXPECT_GT(after.changed, before.changed);
}

// Listings are remembered so that misses are cheap; what changes behind the library's back must show at once all the
// same, whether the remembered listing is young or old.
TEST_F(Directories, ShowNamesThatAppearAndVanishBetweenQuestions) {
    std::filesystem::create_directory("Sub");
    for (const int age_ms : {0, 60}) {
        SCOPED_TRACE(age_ms);
        for (int round = 0; round < 5; ++round) {
            EXPECT_FALSE(get_attributes("sub/file").has_value());
            EXPECT_FALSE(get_attributes("Sub/deep/er/file").has_value());
            std::this_thread::sleep_for(std::chrono::milliseconds(age_ms));
            EXPECT_FALSE(get_attributes("sub/file").has_value());
            EXPECT_FALSE(get_attributes("Sub/deep/er/file").has_value());
            disk::put("Sub/FILE", "");
            std::filesystem::create_directories("Sub/DEEP/ER");
            disk::put("Sub/DEEP/ER/FILE", "");
            EXPECT_TRUE(get_attributes("sub/file").has_value());
            EXPECT_TRUE(get_attributes("sub/deep/er/file").has_value());
            std::filesystem::remove("Sub/FILE");
            std::filesystem::remove_all("Sub/DEEP");
        }
    }
    EXPECT_FALSE(get_attributes("SUB/file").has_value());
    std::filesystem::rename("Sub", "Moved");
    std::filesystem::create_directory("sUB");
    disk::put("sUB/File", "");
    EXPECT_TRUE(get_attributes("SUB/file").has_value());
}

}  // namespace

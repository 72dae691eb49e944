#include "engine/platform/directories.h"

#include <chrono>
#include <thread>

#include "tests/platform/disk.h"

namespace {

using namespace disk;
using testing::ElementsAre;

class Directories : public DiskTest {};

TEST(DirectoryListings, OrderNamesByFoldedBytesThenBytesAndAreReused) {
    const char* const ordered[] = {".",  "0",   "9",   "[",   "_", "`", "A", "a",    "AB",   "Ab",   "aB",
                                   "ab", "ab.", "abZ", "abz", "Z", "z", "{", "\x7f", "\x80", "\xC3", "\xFF"};
    DirectoryListing listing;
    for (std::size_t common = 0; common < 20; ++common) {  // the bytes that names begin with alike
        std::vector<std::string> names;
        for (const char* const end : ordered) names.push_back(std::string(common, 'p') + end);
        listing.clear();
        for (auto name = names.rbegin(); name != names.rend(); ++name)
            listing.add(name->c_str(), name->size(), {.is_directory = name->size() % 2 == 0});
        listing.sort();
        ASSERT_EQ(names_of(listing), names);
        for (const DirectoryItem& item : listing.items()) ASSERT_EQ(item.is_directory, item.length % 2 == 0);
    }
}

TEST_F(Directories, AreMadeOnceUnderAnyCase) {
    write_file("file", "");
    EXPECT_EQ(outcome(create_directory("Sub")), Failure::NONE);
    for (const char* path : {"SUB", "FILE"}) EXPECT_EQ(outcome(create_directory(path)), Failure::ALREADY_EXISTS);
    EXPECT_EQ(outcome(create_directory("sub/Deep/")), Failure::NONE);
    EXPECT_EQ(outcome(create_directory("missing/deep")), Failure::NOT_FOUND);
    EXPECT_FALSE(create_directory("") || remove_directory("file"));
    EXPECT_EQ(outcome(remove_directory("sub")), Failure::NOT_EMPTY);
    EXPECT_TRUE(remove_directory("SUB/deep/") && remove_directory("sub"));
    EXPECT_EQ(outcome(remove_directory("sub")), Failure::NOT_FOUND);
    EXPECT_THAT(names_in("."), ElementsAre("file"));
}

TEST_F(Directories, TellHowTheDiskSpellsAPath) {
    std::filesystem::create_directories("One/tWo");
    const std::pair<std::string, std::string> rows[] = {{"ONE/two/Missing/FILE", "One/tWo/Missing/FILE"},
                                                        {"one//two/", "One//tWo/"},
                                                        {"", ""},
                                                        {std::string(max_path_bytes + 1, 'a'), ""}};
    for (const auto& [given, expected] : rows) EXPECT_EQ(spelled(given), expected);
}

// Listings are remembered so that misses are cheap, and carried on over our own changes; what changes behind the library's
// back must show at once all the same, whether the remembered listing is young or old, and what was renamed away is gone.
TEST_F(Directories, ShowNamesThatAppearAndVanishBetweenQuestions) {
    std::filesystem::create_directory("Sub");
    const auto both_are = [](bool there) {
        return get_attributes("sub/file").has_value() == there &&
               get_attributes("Sub/deep/er/file").has_value() == there;
    };
    for (int round = 0; round < 100; ++round) {
        const int age_ms = round < 5 ? 60 : 0;
        EXPECT_TRUE(both_are(false));
        std::this_thread::sleep_for(std::chrono::milliseconds(age_ms));
        EXPECT_TRUE(both_are(false));
        EXPECT_EQ(try_open("SUB/own", for_creating), Failure::NONE);
        write_file("Sub/FILE", "");
        std::filesystem::create_directories("Sub/DEEP/ER");
        write_file("Sub/DEEP/ER/FILE", "");
        EXPECT_TRUE(both_are(true));
        EXPECT_EQ(try_open("sub/file", for_creating), Failure::NONE);
        EXPECT_TRUE(rename_path("sub/OWN", "sub/kept"));
        EXPECT_EQ(try_open("sub/Own", for_reading), Failure::NOT_FOUND);
        EXPECT_EQ(try_open("sub/KEPT", for_creating), Failure::NONE);
        EXPECT_THAT(names_in("Sub"), testing::UnorderedElementsAre("FILE", "DEEP", "kept"));
        EXPECT_TRUE(remove_file("sub/Kept"));
        std::filesystem::remove("Sub/FILE");
        std::filesystem::remove_all("Sub/DEEP");
    }
}

}  // namespace

#include "engine/filesystem/sources/directory/mount/recorded.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr fs::ListingKey key{"/data/base", 1};

fs::dir_listing sample() {
    fs::dir_listing listing;
    listing.add_directory("", {132'000'000'000'000'000, 7});
    listing.add_file("Top.txt");
    listing.add_directory("Maps/", fs::dir_listing::untrusted_times);
    listing.add_directory("Maps/Deep/", {5, 0});
    listing.add_file("a");
    listing.add_file("b");
    return listing;
}

bool decodes(Bytes bytes, const fs::ListingKey& for_key = key) {
    bytes.shrink_to_fit();  // so that a read past the end is seen
    fs::dir_listing out;
    const bool whole = out.decode(for_key, bytes);
    EXPECT_TRUE(whole || out.is_empty());
    return whole;
}

TEST(RecordedListing, ReadsBackUnlessDamagedOrRecordedForSomethingElse) {
    const Bytes bytes = sample().encode(key);
    fs::dir_listing read_back;
    ASSERT_TRUE(read_back.decode(key, bytes));
    EXPECT_EQ(read_back.encode(key), bytes);
    EXPECT_EQ(read_back.files(), 3u);
    for (std::size_t at = 0; at < bytes.size(); ++at) {
        EXPECT_FALSE(decodes({bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(at)})) << "cut off at " << at;
        for (const int change : {0x01, 0x80, 0xFF}) {
            Bytes damaged = bytes;
            damaged[at] = static_cast<std::uint8_t>(damaged[at] ^ change);
            EXPECT_FALSE(decodes(damaged)) << "changed at " << at;
        }
    }
    Bytes longer = bytes;
    longer.push_back(0);
    EXPECT_FALSE(decodes(longer));
    for (const fs::ListingKey& other : {fs::ListingKey{"/data/other", 1}, {"/data/bas", 1}, {"/data/base", 0}}) {
        EXPECT_FALSE(decodes(bytes, other)) << other.source_path << other.flags;
    }
}

// Records that no scan makes, behind a good checksum.
TEST(RecordedListing, IsRefusedWithHostileRecords) {
    const std::pair<const char*, const char*> names[] = {{"../", "f"},  {"/etc/", "f"},   {"a", "f"}, {"a/./", "f"},
                                                         {"a//", "f"},  {"a\\..\\", "f"}, {"a/", ""}, {"a/", ".."},
                                                         {"a/", "b/c"}, {"a/", "b\\c"}};
    for (const auto& [dir, file] : names) {
        fs::dir_listing listing;
        listing.add_directory(dir, {1, 1});
        listing.add_file(file);
        EXPECT_FALSE(decodes(listing.encode(key))) << dir << " with " << file;
    }
}

}  // namespace

#include "engine/filesystem/sources/listing/listing.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "engine/filesystem/sources/listing/listing_file.h"

namespace {

using Bytes = std::vector<unsigned char>;

constexpr fs::ListingKey key{"/data/base", 1};

Bytes stored(const fs::dir_listing& listing, const fs::ListingKey& for_key = key) {
    fs::PodArray<unsigned char> out;
    EXPECT_TRUE(fs::encode_listing(for_key, listing, out));
    return {out.begin(), out.end()};
}

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

bool decodes(const Bytes& bytes, const fs::ListingKey& for_key = key) {
    fs::dir_listing out;
    const Bytes exact(bytes);  // its own block, so that a read past the end is seen
    const bool whole = fs::decode_listing(for_key, exact.data(), exact.size(), out);
    EXPECT_TRUE(whole || out.is_empty());
    return whole;
}

TEST(Listing, ReadsBackWhatWasRecorded) {
    fs::dir_listing out;
    const Bytes bytes = stored(sample());
    ASSERT_TRUE(fs::decode_listing(key, bytes.data(), bytes.size(), out));
    std::string text;
    fs::ListingReader reader(out);
    for (fs::ListingReader::Directory directory; !reader.at_end();) {
        ASSERT_TRUE(reader.read_directory(directory));
        text += "[" + std::string(directory.dir) + " " + std::to_string(directory.times.written) + " " +
                std::to_string(directory.times.changed) + "]";
        for (std::uint32_t i = 0; i < directory.files; ++i) {
            std::string_view name;
            ASSERT_TRUE(reader.read_file(name));
            text += std::string(name) + ",";
        }
    }
    EXPECT_EQ(text, "[ 132000000000000000 7]Top.txt,[Maps/ -1 -1][Maps/Deep/ 5 0]a,b,");
}

TEST(Listing, IsRefusedWhenCutOffAtAnyLength) {
    const Bytes bytes = stored(sample());
    for (std::size_t length = 0; length < bytes.size(); ++length) {
        EXPECT_FALSE(decodes({bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(length)})) << length;
    }
    Bytes longer = bytes;
    longer.push_back(0);
    EXPECT_FALSE(decodes(longer));
}

TEST(Listing, IsRefusedWithAnyByteChanged) {
    const Bytes bytes = stored(sample());
    ASSERT_TRUE(decodes(bytes));
    for (std::size_t at = 0; at < bytes.size(); ++at) {
        for (const unsigned char change : {0x01, 0x80, 0xFF}) {
            Bytes damaged = bytes;
            damaged[at] = static_cast<unsigned char>(damaged[at] ^ change);
            EXPECT_FALSE(decodes(damaged)) << at;
        }
    }
}

TEST(Listing, IsRefusedWhenItWasRecordedForSomethingElse) {
    const Bytes bytes = stored(sample());
    EXPECT_FALSE(decodes(bytes, {"/data/other", 1}));
    EXPECT_FALSE(decodes(bytes, {"/data/bas", 1}));
    EXPECT_FALSE(decodes(bytes, {"/data/base", 0}));
}

// Records that no scan makes, behind a good checksum.
TEST(Listing, IsRefusedWithHostileRecords) {
    const struct {
        const char* label;
        const char* dir;
        const char* file;
    } cases[] = {
        {"directory climbs", "../", "f"},      {"directory is absolute", "/etc/", "f"},
        {"directory without slash", "a", "f"}, {"directory with dot", "a/./", "f"},
        {"empty component", "a//", "f"},       {"backslash in directory", "a\\..\\", "f"},
        {"file is empty", "a/", ""},           {"file climbs", "a/", ".."},
        {"file with slash", "a/", "b/c"},      {"file with backslash", "a/", "b\\c"},
    };
    for (const auto& row : cases) {
        fs::dir_listing listing;
        listing.add_directory(row.dir, {1, 1});
        listing.add_file(row.file);
        EXPECT_FALSE(decodes(stored(listing))) << row.label;
    }
    fs::dir_listing listing;
    listing.add_directory("a/", {1, 1});
    fs::PodArray<unsigned char> bytes;
    const auto& recorded = listing.bytes();
    ASSERT_TRUE(bytes.reserve(recorded.size()));
    std::copy(recorded.begin(), recorded.end(), bytes.extend(recorded.size()));
    bytes[16] = bytes[19] = 0xFF;  // four thousand million files
    fs::dir_listing out;
    EXPECT_FALSE(out.assign(bytes.data(), bytes.size()));
}

}  // namespace

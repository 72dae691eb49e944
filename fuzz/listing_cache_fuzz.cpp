// A stored listing whose bytes are anything. The first byte says whether the checksum is made good, so that what lies
// behind it is reached; what decodes must then replay and encode to the same bytes.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "engine/kernel/checksum.h"
#include "engine/filesystem/sources/directory/state.h"
#include "engine/filesystem/sources/listing/listing.h"
#include "engine/filesystem/sources/listing/listing_file.h"

namespace {

constexpr fs::ListingKey key{"/d", 1};

void require(bool holds) {
    if (!holds) std::abort();
}

std::vector<std::uint8_t> with_good_head(const std::uint8_t* data, std::size_t size) {
    fs::PodArray<unsigned char> head;
    require(fs::encode_listing(key, fs::dir_listing(), head));
    std::vector<std::uint8_t> bytes(head.begin(), head.end());
    bytes.insert(bytes.end(), data, data + size);
    const std::uint32_t checksum = kernel::crc32(0, bytes.data() + 12, bytes.size() - 12);
    for (int i = 0; i < 4; ++i) bytes[8 + static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(checksum >> 8 * i);
    return bytes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 1) return 0;
    std::vector<std::uint8_t> bytes(data + 1, data + size);
    if (data[0] % 4 != 0) bytes = with_good_head(data + 1, size - 1);
    fs::dir_listing listing;
    if (!fs::decode_listing(key, bytes.data(), bytes.size(), listing)) {
        require(listing.is_empty());
        return 0;
    }
    fs::PodArray<unsigned char> again;
    require(fs::encode_listing(key, listing, again));
    require(again.size() == bytes.size() && std::memcmp(again.data(), bytes.data(), bytes.size()) == 0);

    fs::DirectoryState state;
    state.table = std::make_unique<fs::FileTable>();
    require(fs::replay_listing(state, listing));
    for (std::uint32_t file = state.table->first(); file != fs::FileTable::none; file = state.table->next(file)) {
        require(state.table->find(state.table->dir(file), state.table->name(file)) <= file);
    }
    return 0;
}

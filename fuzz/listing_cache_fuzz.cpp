// A stored listing whose bytes are anything. The first byte says whether the checksum is made good, so that what lies
// behind it is reached; what decodes must then replay and encode to the same bytes.
#include <cstdint>
#include <vector>

#include "engine/filesystem/sources/directory/listing.h"
#include "engine/filesystem/sources/directory/state.h"
#include "engine/kernel/bytes.h"
#include "fuzz/require.h"

namespace {

constexpr fs::ListingKey key{"/d", 1};

std::vector<std::uint8_t> with_good_head(const std::uint8_t* data, std::size_t size) {
    std::vector<std::uint8_t> bytes = fs::dir_listing().encode(key);
    bytes.insert(bytes.end(), data, data + size);
    kernel::store_u32(bytes.data() + 8, kernel::crc32(0, bytes.data() + 12, bytes.size() - 12));
    return bytes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 1) return 0;
    std::vector<std::uint8_t> bytes(data + 1, data + size);
    if (data[0] % 4 != 0) bytes = with_good_head(data + 1, size - 1);
    fs::dir_listing listing;
    if (!listing.decode(key, bytes)) {
        require(listing.is_empty());
        return 0;
    }
    require(listing.encode(key) == bytes);

    const fs::DirectoryState state;
    fs::MountedNames names("");
    require(fs::replay_listing(state, names, listing, fs::Checking::NONE));
    for (std::uint32_t file = names.table.first(); file != fs::NameTable::none; file = names.table.next(file)) {
        require(names.table.find(names.table.dir(file), names.table.name(file)) <= file);
    }
    return 0;
}

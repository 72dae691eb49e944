#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "engine/filesystem/sources/directory/file_table_array.h"
#include "engine/filesystem/sources/listing/listing.h"

namespace fs {

/// What a stored listing was recorded for. One recorded for anything else is foreign.
struct ListingKey {
    std::string_view source_path;  // prepared: normalised, lower case, without a last "/"
    std::uint32_t flags = 0;       // those add-source flags that decide what a scan enters
};

/// The bytes of a stored listing. False when memory cannot be had.
[[nodiscard]] bool encode_listing(const ListingKey& key, const dir_listing& listing, PodArray<unsigned char>& out);

/// The listing of stored bytes; false, and `out` empty, when they are damaged, cut off, of another version or foreign.
[[nodiscard]] bool decode_listing(const ListingKey& key, const unsigned char* bytes, std::size_t size,
                                  dir_listing& out);

}  // namespace fs

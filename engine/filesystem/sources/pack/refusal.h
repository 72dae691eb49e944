#pragma once

#include <cstdint>

namespace fs {

class PackStore;

// Why a file is not taken as a pack, put into words for fs::last_error. Each answers false but refuse_miscounted.

bool refuse_short_pack(const PackStore& store);
bool refuse_long_names(const PackStore& store);
/// Entry `index` of `count` could not be read at `offset`, where the last 22 bytes lead; looks at the file for the reason.
bool refuse_pack(const PackStore& store, std::uint32_t index, std::uint32_t count, std::uint64_t offset);

/// Whether a pack is refused that would mount with entries missing: the last 22 bytes of a zip file with a comment may
/// count none, by chance, and zip64 files count at most 65,535.
bool refuse_miscounted(const PackStore& store, std::uint32_t count);

}  // namespace fs

#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace fs {

class PackStore;

/// One file of a pack as its central directory tells of it.
struct PackRecord {
    std::uint32_t name_offset = 0;  // into PackDirectory::names: the file name without its directory
    std::uint16_t name_length = 0;
    std::uint16_t dir = 0;  // into PackDirectory::dirs; 0 is the root
    std::uint32_t header_offset = 0;
    std::uint32_t size = 0;
    std::uint32_t packed_size = 0;
    std::uint32_t crc = 0;
};

/// What a pack's central directory holds: its visible files in their order, names normalised and in lower case.
struct PackDirectory {
    std::vector<PackRecord> records;
    std::string names;                   // an empty name takes a byte too, so that each has an offset of its own
    std::vector<std::string_view> dirs;  // each directory once, ending in "/"; the root ("") is the first
    std::vector<char> dir_text;          // what `dirs` points into
};

/// Reads the central directory that the pack's last 22 bytes tell of. False, with fs::last_error set, when one of its
/// entries is damaged; a pack is taken whole or not at all. May throw std::bad_alloc.
bool read_pack_directory(const PackStore& store, PackDirectory& out);

}  // namespace fs

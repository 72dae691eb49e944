#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace fs {

/// One entry as a pack records it, in its local header and in the central directory alike.
struct PackedEntry {
    std::string_view name;
    std::uint32_t crc = 0;
    std::uint32_t packed_size = 0;
    std::uint32_t size = 0;
    std::uint32_t header_offset = 0;
    std::uint16_t dos_time = 0;
    std::uint16_t dos_date = 0;
    bool stored = false;
};

inline constexpr std::uint64_t local_header_size = 30;
inline constexpr std::uint64_t central_header_size = 46;
inline constexpr std::uint64_t end_record_size = 22;

/// Appends the local header with the name.
void append_local_header(std::string& out, const PackedEntry& entry);
/// Appends the central directory's header with the name.
void append_central_header(std::string& out, const PackedEntry& entry);
void append_end_record(std::string& out, std::uint32_t entries, std::uint32_t directory_offset,
                       std::uint32_t directory_size);

/// Date and time in a zip file's form (even seconds; 1980 to 2107, beyond which the nearest is taken) of a count of
/// 100 ns since 1601, whatever the time zone.
void to_dos_time(std::int64_t file_time, std::uint16_t& dos_date, std::uint16_t& dos_time);

/// Why no pack source could show a file of this name; null when it could. The text goes on behind "the name".
const char* refuse_entry_name(std::string_view name);

}  // namespace fs

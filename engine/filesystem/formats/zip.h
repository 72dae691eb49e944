#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include <engine/filesystem/formats/pack_method.h>

#include "engine/kernel/bytes.h"

/// The records of zip files (ZIP application note, 4.3), for who reads and who writes them. A file is a local header with
/// its data for each entry, a central directory of one header for each, and the end record.
namespace fs::zip {

inline constexpr std::uint32_t local_signature = 0x04034B50;
inline constexpr std::uint32_t central_signature = 0x02014B50;
inline constexpr std::uint32_t end_signature = 0x06054B50;
inline constexpr std::uint32_t zip64_locator_signature = 0x07064B50;

// Sizes without the texts that follow.
inline constexpr std::uint32_t local_header_size = 30;
inline constexpr std::uint32_t central_header_size = 46;
inline constexpr std::uint32_t end_record_size = 22;
inline constexpr std::uint32_t zip64_locator_size = 20;

inline constexpr std::uint32_t most_entries = 0xFFFF;
inline constexpr std::uint32_t longest_text = 0xFFFF;
inline constexpr std::uint32_t in_zip64_field = 0xFFFFFFFF;  // the number stands in an extra field, which is not read
inline constexpr std::uint64_t most_bytes = in_zip64_field - 1;

/// Where an entry's data begins is told by its local header alone.
struct LocalHeader {
    std::uint16_t method;
    std::uint32_t texts_size;  // of name and extra field, which lie between header and data
};
inline LocalHeader read_local_header(const std::uint8_t* bytes) {
    return {.method = kernel::load_u16(bytes + 8),
            .texts_size = std::uint32_t{kernel::load_u16(bytes + 26)} + kernel::load_u16(bytes + 28)};
}

/// A header of the central directory.
struct CentralHeader {
    std::uint16_t method;
    std::uint16_t dos_time;
    std::uint16_t dos_date;
    std::uint32_t crc;
    std::uint32_t packed_size;
    std::uint32_t size;
    std::uint16_t name_size;
    std::uint32_t texts_size;  // of extra field and comment, which follow the name
    std::uint32_t header_offset;
};
inline CentralHeader read_central_header(const std::uint8_t* bytes) {
    return {.method = kernel::load_u16(bytes + 10),
            .dos_time = kernel::load_u16(bytes + 12),
            .dos_date = kernel::load_u16(bytes + 14),
            .crc = kernel::load_u32(bytes + 16),
            .packed_size = kernel::load_u32(bytes + 20),
            .size = kernel::load_u32(bytes + 24),
            .name_size = kernel::load_u16(bytes + 28),
            .texts_size = std::uint32_t{kernel::load_u16(bytes + 30)} + kernel::load_u16(bytes + 32),
            .header_offset = kernel::load_u32(bytes + 42)};
}

struct EndRecord {
    std::uint16_t entries;
    std::uint32_t directory_size;
    std::uint32_t directory_offset;
    std::uint16_t comment_size;
};
inline EndRecord read_end_record(const std::uint8_t* bytes) {
    return {.entries = kernel::load_u16(bytes + 8),
            .directory_size = kernel::load_u32(bytes + 12),
            .directory_offset = kernel::load_u32(bytes + 16),
            .comment_size = kernel::load_u16(bytes + 20)};
}

/// One entry as it is written, in its local header and in the central directory alike.
struct NewEntry {
    std::string_view name;
    std::uint32_t crc = 0;
    std::uint32_t packed_size = 0;
    std::uint32_t size = 0;
    std::uint32_t header_offset = 0;
    std::uint16_t dos_time = 0;
    std::uint16_t dos_date = 0;
    EFSPackMethod::TYPE method = EFSPackMethod::STORE;
};

// Appended with the name. May throw std::bad_alloc.
void append_local_header(std::string& out, const NewEntry& entry);
void append_central_header(std::string& out, const NewEntry& entry);
void append_end_record(std::string& out, std::uint32_t entries, std::uint32_t directory_offset,
                       std::uint32_t directory_size);

/// Date and time in a zip file's form (even seconds; 1980 to 2107, beyond which the nearest is taken) of a count of
/// 100 ns since 1601, whatever the time zone.
void to_dos_time(std::int64_t file_time, std::uint16_t& dos_date, std::uint16_t& dos_time);
std::int64_t from_dos_time(std::uint16_t dos_date, std::uint16_t dos_time);

}  // namespace fs::zip

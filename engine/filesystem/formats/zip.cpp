// The records of zip files as they are written, and their form of times.
#include "engine/filesystem/formats/zip.h"

#include <algorithm>

#include "engine/kernel/text.h"
#include "engine/platform/clock.h"

namespace fs::zip {

namespace {

constexpr std::uint16_t flag_utf8 = 0x0800;
constexpr std::uint16_t made_on_unix = 3 << 8;
constexpr std::uint32_t regular_file_mode = 0100644;  // what unpackers give the file
constexpr std::uint16_t no_extra_field = 0;
constexpr std::uint16_t no_comment = 0;
constexpr std::uint16_t no_attributes = 0;
constexpr std::uint16_t first_disk = 0;

/// Appends numbers, each as wide as its type.
template <typename... Numbers>
void append(std::string& out, Numbers... numbers) {
    (kernel::append_number(out, numbers), ...);
}

/// The version of the format that a reader needs.
std::uint16_t version_for(EFSPackMethod::TYPE method) {
    if (method == EFSPackMethod::STORE) return 10;
    return method == EFSPackMethod::DEFLATE ? 20 : 63;
}

bool is_ascii(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char letter) { return static_cast<unsigned char>(letter) < 0x80; });
}

/// The flags say that a name is UTF-8. One that only claims it keeps other zip tools from reading the whole pack.
std::uint16_t flags_for(std::string_view name) {
    return !is_ascii(name) && kernel::is_utf8(name) ? flag_utf8 : std::uint16_t{0};
}

/// What both kinds of header have in common.
void append_common(std::string& out, const NewEntry& entry) {
    append(out, version_for(entry.method), flags_for(entry.name), static_cast<std::uint16_t>(entry.method));
    append(out, entry.dos_time, entry.dos_date, entry.crc, entry.packed_size, entry.size);
    append(out, static_cast<std::uint16_t>(entry.name.size()), no_extra_field);
}

}  // namespace

void append_local_header(std::string& out, const NewEntry& entry) {
    append(out, local_signature);
    append_common(out, entry);
    out.append(entry.name);
}

void append_central_header(std::string& out, const NewEntry& entry) {
    const std::uint16_t version = std::max<std::uint16_t>(20, version_for(entry.method));
    append(out, central_signature, static_cast<std::uint16_t>(made_on_unix | version));
    append_common(out, entry);
    append(out, no_comment, first_disk, no_attributes, regular_file_mode << 16, entry.header_offset);
    out.append(entry.name);
}

void append_end_record(std::string& out, std::uint32_t entries, std::uint32_t directory_offset,
                       std::uint32_t directory_size) {
    const auto count = static_cast<std::uint16_t>(entries);
    append(out, end_signature, first_disk, first_disk, count, count, directory_size, directory_offset, no_comment);
}

void to_dos_time(std::int64_t file_time, std::uint16_t& dos_date, std::uint16_t& dos_time) {
    const platform::CalendarTime time = platform::to_calendar(std::max<std::int64_t>(0, file_time));
    if (time.year < 1980) {
        dos_date = 1 << 5 | 1;
        dos_time = 0;
    } else if (time.year > 2107) {
        dos_date = 127 << 9 | 12 << 5 | 31;
        dos_time = 23 << 11 | 59 << 5 | 29;
    } else {
        dos_date = static_cast<std::uint16_t>((time.year - 1980) << 9 | time.month << 5 | time.day);
        dos_time = static_cast<std::uint16_t>(time.hour << 11 | time.minute << 5 | time.second / 2);
    }
}

std::int64_t from_dos_time(std::uint16_t dos_date, std::uint16_t dos_time) {
    return platform::from_calendar({.year = 1980 + (dos_date >> 9),
                                    .month = dos_date >> 5 & 15,
                                    .day = dos_date & 31,
                                    .hour = dos_time >> 11,
                                    .minute = dos_time >> 5 & 63,
                                    .second = (dos_time & 31) * 2});
}

}  // namespace fs::zip

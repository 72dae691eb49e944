#include "engine/filesystem/formats/zip.h"

#include <algorithm>

#include "engine/kernel/text.h"
#include "engine/platform/clock.h"

namespace fs::zip {

namespace {

constexpr std::uint16_t flag_utf8 = 0x0800;
constexpr std::uint16_t made_on_unix = 3 << 8;
constexpr std::uint32_t regular_file_mode = 0100644;  // what unpackers give the file

void append_u16(std::string& out, std::uint32_t value) {
    out.push_back(static_cast<char>(value & 0xFF));
    out.push_back(static_cast<char>(value >> 8 & 0xFF));
}

void append_u32(std::string& out, std::uint32_t value) {
    append_u16(out, value);
    append_u16(out, value >> 16);
}

/// The version of the format that a reader needs.
std::uint32_t version_for(EFSPackMethod::TYPE method) {
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

/// The fields that both headers have in the same order.
void append_common(std::string& out, const NewEntry& entry) {
    append_u16(out, version_for(entry.method));
    append_u16(out, flags_for(entry.name));
    append_u16(out, entry.method);
    append_u16(out, entry.dos_time);
    append_u16(out, entry.dos_date);
    append_u32(out, entry.crc);
    append_u32(out, entry.packed_size);
    append_u32(out, entry.size);
    append_u16(out, static_cast<std::uint32_t>(entry.name.size()));
    append_u16(out, 0);  // no extra field
}

}  // namespace

void append_local_header(std::string& out, const NewEntry& entry) {
    append_u32(out, local_signature);
    append_common(out, entry);
    out.append(entry.name);
}

void append_central_header(std::string& out, const NewEntry& entry) {
    append_u32(out, central_signature);
    append_u16(out, made_on_unix | std::max(20u, version_for(entry.method)));
    append_common(out, entry);
    append_u16(out, 0);  // no comment
    append_u16(out, 0);  // first disk
    append_u16(out, 0);  // internal attributes
    append_u32(out, regular_file_mode << 16);
    append_u32(out, entry.header_offset);
    out.append(entry.name);
}

void append_end_record(std::string& out, std::uint32_t entries, std::uint32_t directory_offset,
                       std::uint32_t directory_size) {
    append_u32(out, end_signature);
    append_u32(out, 0);  // this disk, and the one of the directory
    append_u16(out, entries);
    append_u16(out, entries);
    append_u32(out, directory_size);
    append_u32(out, directory_offset);
    append_u16(out, 0);  // no comment
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

#pragma once

#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <zlib.h>

#include <engine/filesystem/sources/pack.h>

#include "engine/kernel/checksum.h"
#include "tests/support/temp_directory.h"

namespace packs {

inline void put_u16(std::string& out, std::uint32_t value) {
    out.push_back(static_cast<char>(value & 0xFF));
    out.push_back(static_cast<char>(value >> 8 & 0xFF));
}
inline void put_u32(std::string& out, std::uint32_t value) {
    put_u16(out, value);
    put_u16(out, value >> 16);
}

inline std::string deflated(const std::string& data, int level = 6, int strategy = Z_DEFAULT_STRATEGY) {
    z_stream stream{};
    deflateInit2(&stream, level, Z_DEFLATED, -MAX_WBITS, 8, strategy);
    std::string out(deflateBound(&stream, static_cast<uLong>(data.size())) + 100, '\0');
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data.data()));
    stream.avail_in = static_cast<uInt>(data.size());
    stream.next_out = reinterpret_cast<Bytef*>(out.data());
    stream.avail_out = static_cast<uInt>(out.size());
    deflate(&stream, Z_FINISH);
    out.resize(stream.total_out);
    deflateEnd(&stream);
    return out;
}

/// One entry as it will stand in the pack, right or wrong.
struct Entry {
    std::string name;
    std::string packed;
    std::uint32_t size = 0;
    std::uint32_t packed_size = 0;
    std::uint16_t method = 8;
    std::string local_extra = {};
    std::string central_extra = {};
    std::string comment = {};
    std::uint32_t crc = 0;
    std::uint32_t header_offset = 0;  // filled by build() unless `lies_about_offset`
    bool lies_about_offset = false;
};

inline Entry deflated_entry(const std::string& name, const std::string& data) {
    Entry entry{.name = name, .packed = deflated(data), .size = static_cast<std::uint32_t>(data.size())};
    entry.packed_size = static_cast<std::uint32_t>(entry.packed.size());
    entry.crc = kernel::crc32(0, data.data(), data.size());
    return entry;
}

inline Entry stored_entry(const std::string& name, const std::string& data) {
    Entry entry{.name = name, .packed = data, .size = static_cast<std::uint32_t>(data.size()), .method = 0};
    entry.packed_size = entry.size;
    entry.crc = kernel::crc32(0, data.data(), data.size());
    return entry;
}

/// The bytes of a pack of these entries.
inline std::string build(std::vector<Entry> entries) {
    std::string out;
    for (Entry& entry : entries) {
        if (!entry.lies_about_offset) entry.header_offset = static_cast<std::uint32_t>(out.size());
        put_u32(out, 0x04034B50);
        for (const std::uint32_t field : {20u, 0u, std::uint32_t{entry.method}, 0u, 0u}) put_u16(out, field);
        put_u32(out, entry.crc);
        put_u32(out, entry.packed_size);
        put_u32(out, entry.size);
        put_u16(out, static_cast<std::uint32_t>(entry.name.size()));
        put_u16(out, static_cast<std::uint32_t>(entry.local_extra.size()));
        out += entry.name + entry.local_extra + entry.packed;
    }
    const auto directory = static_cast<std::uint32_t>(out.size());
    for (const Entry& entry : entries) {
        put_u32(out, 0x02014B50);
        for (const std::uint32_t field : {20u, 20u, 0u, std::uint32_t{entry.method}, 0u, 0u}) put_u16(out, field);
        put_u32(out, entry.crc);
        put_u32(out, entry.packed_size);
        put_u32(out, entry.size);
        put_u16(out, static_cast<std::uint32_t>(entry.name.size()));
        put_u16(out, static_cast<std::uint32_t>(entry.central_extra.size()));
        put_u16(out, static_cast<std::uint32_t>(entry.comment.size()));
        for (int field = 0; field < 4; ++field) put_u16(out, 0);
        put_u32(out, entry.header_offset);
        out += entry.name + entry.central_extra + entry.comment;
    }
    const auto size = static_cast<std::uint32_t>(out.size()) - directory;
    put_u32(out, 0x06054B50);
    put_u32(out, 0);
    put_u16(out, static_cast<std::uint32_t>(entries.size()));
    put_u16(out, static_cast<std::uint32_t>(entries.size()));
    put_u32(out, size);
    put_u32(out, directory);
    put_u16(out, 0);
    return out;
}

/// Bytes that compress to about half and hold no long repetitions.
inline std::string noise(std::size_t size, std::uint32_t seed) {
    std::mt19937 random(seed);
    std::string out(size, '\0');
    for (char& byte : out) byte = static_cast<char>('a' + (random() & 15));
    return out;
}

/// Writes the bytes to "test.pak" and mounts it; null when it is refused.
inline std::unique_ptr<CZip_dir> mount(const std::string& bytes,
                                       FFSAddSourceFlags::ENUM flags = FFSAddSourceFlags::NONE) {
    EXPECT_TRUE(write_file("test.pak", bytes));
    auto source = std::make_unique<CZip_dir>();
    if (!source->init(fs::path("test.pak", true), flags, nullptr)) return nullptr;
    return source;
}

inline SFsFile* open(CZip_dir& source, const std::string& name) {
    return source.open_read(fs::path(name.c_str(), true), FFSOpenFlags::NONE);
}

/// The whole file by one read; "(absent)" when it does not open.
inline std::string content(CZip_dir& source, const std::string& name) {
    const std::unique_ptr<SFsFile> file(open(source, name));
    if (!file) return "(absent)";
    std::string out(static_cast<std::size_t>(file->length()), '\0');
    out.resize(static_cast<std::size_t>(file->read(out.data(), out.size())));
    return out;
}

/// A list of names as text, freed.
inline std::vector<std::string> take_names(FS_NAME* names) {
    std::vector<std::string> out;
    for (const FS_NAME* name = names; name; name = name->next) out.emplace_back(name->name);
    fs::free_names(names);
    return out;
}

}  // namespace packs

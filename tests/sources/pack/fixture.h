#pragma once

#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <zlib.h>

#include <engine/filesystem/sources/pack.h>

#include "engine/filesystem/formats/zip.h"
#include "engine/kernel/checksum.h"
#include "tests/support/temp_directory.h"

namespace packs {

inline void put_u32(std::string& out, std::uint32_t value) {
    for (int shift = 0; shift < 32; shift += 8) out.push_back(static_cast<char>(value >> shift & 0xFF));
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
    std::uint32_t header_offset = 0;  // where `lies_about_offset`
    bool lies_about_offset = false;
};

inline Entry packed_entry(const std::string& name, const std::string& data, std::uint16_t method,
                          const std::string& packed) {
    Entry entry{.name = name, .packed = packed, .size = static_cast<std::uint32_t>(data.size()), .method = method};
    entry.packed_size = static_cast<std::uint32_t>(packed.size());
    entry.crc = kernel::crc32(0, data.data(), data.size());
    return entry;
}
inline Entry deflated_entry(const std::string& name, const std::string& data) {
    return packed_entry(name, data, 8, deflated(data));
}
inline Entry stored_entry(const std::string& name, const std::string& data) {
    return packed_entry(name, data, 0, data);
}

/// The bytes of a pack of these entries.
inline std::string build(std::vector<Entry> entries) {
    std::string out;
    std::string directory;
    const auto set_size = [](std::string& in, std::size_t at, const std::string& text) {
        kernel::store_u16(reinterpret_cast<std::uint8_t*>(&in[at]), static_cast<std::uint16_t>(text.size()));
    };
    for (const Entry& entry : entries) {
        const std::size_t local = out.size();
        const std::size_t central = directory.size();
        const fs::zip::NewEntry told{
            .name = entry.name,
            .crc = entry.crc,
            .packed_size = entry.packed_size,
            .size = entry.size,
            .header_offset = entry.lies_about_offset ? entry.header_offset : static_cast<std::uint32_t>(local),
            .method = static_cast<EFSPackMethod::TYPE>(entry.method)};
        fs::zip::append_local_header(out, told);
        fs::zip::append_central_header(directory, told);
        set_size(out, local + 28, entry.local_extra);
        set_size(directory, central + 30, entry.central_extra);
        set_size(directory, central + 32, entry.comment);
        out += entry.local_extra + entry.packed;
        directory += entry.central_extra + entry.comment;
    }
    const auto offset = static_cast<std::uint32_t>(out.size());
    out += directory;
    fs::zip::append_end_record(out, static_cast<std::uint32_t>(entries.size()), offset,
                               static_cast<std::uint32_t>(directory.size()));
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

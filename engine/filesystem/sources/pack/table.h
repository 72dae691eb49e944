#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "engine/filesystem/sources/names/name_table.h"

namespace fs {

/// One file of a pack; its name is in the table of names.
struct PackEntry {
    std::uint32_t header_offset = 0;
    std::uint32_t size = 0;
    std::uint32_t packed_size = 0;
    std::uint32_t crc = 0;    // of the plain bytes
    std::uint32_t state = 0;  // PackArchive's; changes once, when the entry is first opened
};

/// The files of a pack, known by their numbers in the table of names. That has them in the order of their names, and
/// between equal names of their directories, since a lookup takes the first that was added. Nothing but the entries'
/// states changes once it is built.
struct PackTable {
    NameTable names;  // in lower case; each file's value is its entry
    std::vector<PackEntry> entries;

    PackEntry& entry(std::uint32_t file) { return entries[names.value(file)]; }
    /// Bytes that the table holds, its texts among them.
    std::size_t memory() const { return entries.capacity() * sizeof(PackEntry) + names.bytes(); }
};

/// Puts the files of a pack in order. May throw std::bad_alloc.
class PackTableBuilder {
public:
    explicit PackTableBuilder(std::size_t files) { files_.reserve(files); }

    /// Adds a file; `dir` ends in "/" or is empty. Both are in lower case.
    void add(std::string_view dir, std::string_view name, const PackEntry& told);
    PackTable finish();

private:
    struct File {
        PackEntry told;
        std::uint32_t name_offset;  // into names_
        std::uint32_t name_size;
        std::uint32_t dir;  // as the table of names numbers it
    };

    PackTable table_;
    std::vector<File> files_;
    std::string names_;  // at most 65,535 of as many bytes
};

}  // namespace fs

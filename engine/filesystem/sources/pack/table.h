#pragma once

#include <cstdint>
#include <vector>

#include <engine/filesystem/sources/pack.h>

#include "engine/filesystem/sources/names/name_table.h"
#include "engine/filesystem/sources/pack/store.h"

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
};

/// Reads the directory of an open pack. May throw std::bad_alloc, or StoredFailure, whose reason says what the file is
/// instead of a pack; so the next.
PackTable read_table(const PackStore& store);
/// The files as the pack's directory tells them, in its order.
ztl::vector<SFsPackEntry> list_entries(const PackStore& store);

}  // namespace fs

#pragma once

#include <cstdint>
#include <optional>
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
    std::uint32_t file = 0;   // its number in the table of names
};

/// The files of a pack in the order of their names, and between equal names of their directories. Nothing but the
/// entries' states changes once it is built.
class PackTable {
public:
    /// Among the files of that name the first, in table order, whose directory ends in `dir` or is the end of `dir`;
    /// the first of all for an empty `dir`. Both texts are in lower case; so below.
    std::optional<std::uint32_t> find(std::string_view dir, std::string_view name) const {
        return entry_of(names_.find(dir, name));
    }
    /// The first file of exactly this directory and name.
    std::optional<std::uint32_t> find_exact(std::string_view dir, std::string_view name) const {
        return entry_of(names_.find_exact(dir, name));
    }

    std::uint32_t count() const { return static_cast<std::uint32_t>(entries_.size()); }
    PackEntry& entry(std::uint32_t index) { return entries_[index]; }
    std::string_view dir(std::uint32_t index) const { return names_.dir(entries_[index].file); }
    std::string_view name(std::uint32_t index) const { return names_.name(entries_[index].file); }
    /// Each directory once, without the root, in the order of their texts. May throw std::bad_alloc.
    std::vector<std::string_view> directories() const;

    /// Bytes that the table holds, its texts among them.
    std::size_t memory() const { return entries_.capacity() * sizeof(PackEntry) + names_.bytes(); }

private:
    friend class PackTableBuilder;

    std::optional<std::uint32_t> entry_of(std::uint32_t file) const {
        if (file == NameTable::none) return std::nullopt;
        return names_.value(file);
    }

    NameTable names_;  // each file's value is its entry
    std::vector<PackEntry> entries_;
    std::vector<std::uint32_t> dirs_;  // numbers of the directories; once built, in the order of their texts
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
        std::uint32_t dir;  // index into the table's directories, which stand in the order of their first appearance
    };

    std::uint32_t index_of(std::string_view dir);

    PackTable table_;
    std::vector<File> files_;
    std::string names_;  // at most 65,535 of as many bytes
};

}  // namespace fs

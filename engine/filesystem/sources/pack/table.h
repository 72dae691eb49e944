#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "engine/filesystem/sources/names/name_table.h"

namespace fs {

struct PackDirectory;

/// One file of a pack; its name is in the table of names.
struct PackEntry {
    // Bits of `state` beside the length of the local header's two texts, which takes the lowest 17.
    static constexpr std::uint32_t texts_mask = 0x1FFFF;
    static constexpr std::uint32_t located = 1u << 17;  // the local header was read: texts and `stored` hold
    static constexpr std::uint32_t stored = 1u << 18;   // else deflated

    std::uint32_t file;  // its number in the table of names
    std::uint32_t header_offset;
    std::uint32_t size;
    std::uint32_t packed_size;
    std::uint32_t state;  // changes once, when the entry is first opened; read and written atomically
};

/// The files of a pack in the order of their names, and between equal names of their directories. Nothing but the
/// entries' states changes after `build`.
class PackTable {
public:
    /// May throw std::bad_alloc.
    void build(PackDirectory&& directory);

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
    std::optional<std::uint32_t> entry_of(std::uint32_t file) const {
        if (file == NameTable::none) return std::nullopt;
        return names_.value(file);
    }

    NameTable names_;  // each file's value is its entry
    std::vector<PackEntry> entries_;
    std::vector<std::uint32_t> dirs_;  // numbers of the directories, in the order of their texts
};

}  // namespace fs

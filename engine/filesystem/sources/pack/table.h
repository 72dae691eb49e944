#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace fs {

struct PackDirectory;
struct TextRun;

/// One file of a pack. 32 bytes; a pack of 60,000 files holds as many of them.
struct PackEntry {
    // Bits of `state` beside the length of the local header's two texts, which takes the lowest 17.
    static constexpr std::uint32_t texts_mask = 0x1FFFF;
    static constexpr std::uint32_t located = 1u << 17;    // the local header was read: texts and `stored` hold
    static constexpr std::uint32_t stored = 1u << 18;     // else deflated
    static constexpr std::uint32_t same_name = 1u << 19;  // the next entry of the table has the same name
    static constexpr std::uint32_t many = 1u << 20;       // its name has more entries than are walked through
    static constexpr std::uint32_t overruled = 1u << 21;  // another entry answers to its full name: see winners_
    static constexpr std::uint32_t zstd = 1u << 22;

    std::uint32_t dir_offset;
    std::uint32_t name_offset;
    std::uint16_t dir_length;
    std::uint16_t name_length;
    std::uint32_t header_offset;
    std::uint32_t size;
    std::uint32_t packed_size;
    std::uint32_t crc;
    std::uint32_t state;  // changes once, when the entry is first opened; read and written atomically
};
static_assert(sizeof(PackEntry) == 32);

/// Slots of (tag, entry) pairs, found by hash with linear probing. An entry is the number of its place in the table,
/// which has at most 65,535 of them, so that 16 bits are left to tell most strangers without touching the entry.
class PackIndex {
public:
    void reserve(std::size_t entries);
    bool empty() const { return slots_.empty(); }
    void insert(std::uint64_t hash, std::uint16_t entry);

    /// The first entry under `hash` that `matches`.
    template <class Matches>
    std::optional<std::uint32_t> find(std::uint64_t hash, Matches matches) const {
        if (slots_.empty()) return std::nullopt;
        for (std::size_t slot = home(hash);; slot = slot + 1 == slots_.size() ? 0 : slot + 1) {
            const std::uint32_t value = slots_[slot];
            if (value == vacant) return std::nullopt;
            if ((value ^ tag(hash)) < 0x10000 && matches(value & 0xFFFF)) return value & 0xFFFF;
        }
    }

    std::size_t memory() const { return slots_.capacity() * sizeof(std::uint32_t); }

private:
    static constexpr std::uint32_t vacant = 0xFFFFFFFF;  // no table has an entry 0xFFFF

    static std::uint32_t tag(std::uint64_t hash) { return static_cast<std::uint32_t>(hash & 0xFFFF) << 16; }
    std::size_t home(std::uint64_t hash) const { return static_cast<std::size_t>((hash >> 32) * slots_.size() >> 32); }

    std::vector<std::uint32_t> slots_;
};

/// The files of a pack in the order of their names, and between equal names of their directories. Nothing but the
/// entries' states changes after `build`.
class PackTable {
public:
    /// May throw std::bad_alloc.
    void build(PackDirectory&& directory);

    /// Among the files of that name the first, in table order, whose directory ends in `dir` or is the end of `dir`;
    /// the first of all for an empty `dir`. Both texts are in lower case.
    std::optional<std::uint32_t> find(std::string_view dir, std::string_view name) const;

    /// The first file of exactly this directory and name.
    std::optional<std::uint32_t> find_exact(std::string_view dir, std::string_view name) const;

    std::uint32_t count() const { return static_cast<std::uint32_t>(entries_.size()); }
    PackEntry& entry(std::uint32_t index) { return entries_[index]; }
    std::string_view dir(std::uint32_t index) const { return dir_of(entries_[index]); }
    std::string_view name(std::uint32_t index) const { return name_of(entries_[index]); }
    /// Each directory once, without the root, in the order of their texts. May throw std::bad_alloc.
    std::vector<std::string_view> directories() const;

    /// Bytes that the table holds beside its texts.
    std::size_t memory() const;

private:
    std::string_view dir_of(const PackEntry& entry) const {
        return {dirs_.data() + entry.dir_offset, entry.dir_length};
    }
    std::string_view name_of(const PackEntry& entry) const {
        return {names_.data() + entry.name_offset, entry.name_length};
    }
    static std::uint64_t hash_full(std::uint32_t name_offset, std::string_view dir);
    bool has(std::uint32_t index, std::uint32_t bit) const;
    std::uint32_t group_end(std::uint32_t first) const;
    std::uint16_t winner(std::uint32_t index) const;
    std::optional<std::uint32_t> walk(std::uint32_t first, std::string_view dir) const;
    std::optional<std::uint32_t> find_exact(std::uint32_t first, std::string_view dir) const;
    std::optional<std::uint32_t> find_by_end(std::uint32_t first, std::string_view dir) const;

    void place_entries(const PackDirectory& directory, const std::vector<std::uint32_t>& order);
    void mark_groups(const std::vector<TextRun>& groups);
    void index_names(const std::vector<TextRun>& groups);
    void index_full_names(const std::vector<TextRun>& groups);
    void choose_winners(const PackDirectory& directory, const std::vector<std::uint32_t>& order);

    std::vector<PackEntry> entries_;
    std::string names_;  // entries of one name have one offset, so that it tells them from all others
    std::vector<char> dirs_;
    PackIndex by_name_;                   // the first entry of each name
    PackIndex by_full_;                   // entries whose name has many, under their full name
    std::vector<std::uint16_t> by_end_;   // within each group of many: its entries by their directories read backwards
    std::vector<std::uint16_t> winners_;  // who answers to an entry's full name; empty when all answer themselves
    std::uint32_t longest_dir_ = 0;
};

}  // namespace fs

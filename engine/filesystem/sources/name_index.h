#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>

namespace fs {

/// A quick hash of a text, eight bytes at a time. It stays inside the process and never reaches a file.
inline std::uint64_t hash_text(const char* text, std::size_t length) {
    constexpr std::uint64_t factor = 0x9E3779B97F4A7C15u;
    std::uint64_t hash = length * factor;
    const auto mix = [&hash](std::uint64_t word) {
        hash = (hash ^ word) * factor;
        hash ^= hash >> 32;
    };
    std::uint64_t word = 0;
    if (length < 8) {
        for (std::size_t i = 0; i < length; ++i) word = word << 8 | static_cast<unsigned char>(text[i]);
        mix(word);
    } else {
        for (std::size_t i = 0; i + 8 < length; i += 8) {
            std::memcpy(&word, text + i, 8);
            mix(word);
        }
        std::memcpy(&word, text + length - 8, 8);  // overlaps the word before it
        mix(word);
    }
    hash *= factor;
    return hash ^ hash >> 29;
}

/// Finds 32-bit values by hash: open addressing over groups of twelve slots. A group is one line of the processor's cache:
/// for each slot a byte that is empty, erased or seven bits of its value's hash, and behind these bytes the values; a miss
/// reads one line, and a hit no other before the value's own.
class NameIndex {
public:
    /// The slot of the value that `matches`, or null. A changed value must have the same hash.
    template <class Matches>
    std::uint32_t* find(std::uint64_t hash, Matches&& matches) const {
        if (!groups_) return nullptr;
        const std::uint64_t wanted = low_bits * tag(hash);
        for (std::size_t at = first_group(hash);; at = (at + 1) & group_mask_) {
            Group& group = groups_[at];
            const std::uint64_t first = load(group.tags);
            const std::uint64_t second = load(group.tags + 8);
            for (std::uint64_t hits = equal_bytes(first, wanted); hits != 0; hits &= hits - 1) {
                std::uint32_t* slot = group.values + first_byte(hits);
                if (matches(*slot)) return slot;
            }
            for (std::uint64_t hits = equal_bytes(second, wanted); hits != 0; hits &= hits - 1) {
                std::uint32_t* slot = group.values + 8 + first_byte(hits);
                if (matches(*slot)) return slot;
            }
            if ((empty_bytes(first) | empty_bytes(second)) != 0) return nullptr;  // an empty slot ends every chain
        }
    }

    /// Reads the group of a hash that will soon be looked for, so that several waits for memory overlap.
    void touch(std::uint64_t hash) const {
        if (groups_) static_cast<void>(*static_cast<const volatile std::uint8_t*>(groups_[first_group(hash)].tags));
    }
    /// Whether the next insert needs start_over first.
    bool is_full() const { return used_ >= limit_; }
    std::size_t size() const { return size_; }
    /// Empties the index and makes room for at least `count` values. False, with nothing changed, without memory.
    [[nodiscard]] bool start_over(std::size_t count);
    /// Adds a value that is not there yet; there must be room.
    void insert(std::uint64_t hash, std::uint32_t value);
    void erase(const std::uint32_t* slot);
    std::size_t bytes() const { return groups_ ? (group_mask_ + 1) * sizeof(Group) : 0; }

private:
    static constexpr std::size_t group_size = 12;
    static constexpr std::uint64_t low_bits = 0x0101010101010101u;
    static constexpr std::uint64_t high_bits = 0x8080808080808080u;
    static constexpr std::uint8_t empty_tag = 0x80;
    static constexpr std::uint8_t erased_tag = 0xFE;
    static constexpr std::uint8_t no_slot_tag = 0xFF;  // of the last four bytes, which have no slot

    struct alignas(64) Group {
        std::uint8_t tags[16];
        std::uint32_t values[group_size];
    };

    static std::uint64_t tag(std::uint64_t hash) { return hash & 0x7F; }
    static std::uint64_t load(const std::uint8_t* tags) {
        std::uint64_t bytes = 0;
        std::memcpy(&bytes, tags, 8);
        return bytes;
    }
    // The high bit of each byte that is equal; a byte above an equal one may show too, so that each hit is looked at.
    static std::uint64_t equal_bytes(std::uint64_t bytes, std::uint64_t wanted) {
        const std::uint64_t differing = bytes ^ wanted;
        return (differing - low_bits) & ~differing & high_bits;
    }
    static std::uint64_t empty_bytes(std::uint64_t bytes) { return bytes & ~bytes << 6 & high_bits; }
    static std::size_t first_byte(std::uint64_t bits) { return static_cast<std::size_t>(std::countr_zero(bits)) / 8; }
    std::size_t first_group(std::uint64_t hash) const { return static_cast<std::size_t>(hash >> 7) & group_mask_; }

    std::unique_ptr<Group[]> groups_;
    std::size_t group_mask_ = 0;
    std::size_t size_ = 0;
    std::size_t used_ = 0;   // slots that are not empty; erased ones count until start_over
    std::size_t limit_ = 0;  // at most five slots in six are used, so that chains stay short
};

}  // namespace fs

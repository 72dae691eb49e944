#pragma once

#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>

#include <xmmintrin.h>

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

/// Asks the processor for a place in memory that will soon be read.
inline void fetch(const void* place) {
    _mm_prefetch(static_cast<const char*>(place), _MM_HINT_T0);
    // Without this the compiler takes a function that only fetches for one that does nothing, and drops the call.
    std::atomic_signal_fence(std::memory_order_acq_rel);
}

/// Finds 32-bit values by hash: open addressing over groups of seven slots. A group is one line of the processor's cache:
/// for each slot a byte that is empty, erased or seven bits of its value's hash, and behind these bytes the values; a miss
/// reads one line, and a hit no other before the value's own. Beside each value stands a hint, which is handed on with it
/// and tells what else may be needed, so that it can be fetched at the same time.
class NameIndex {
public:
    /// The slot of the value for which `matches(value, hint)`, or null. A changed value must have the same hash.
    template <class Matches>
    std::uint32_t* find(std::uint64_t hash, Matches&& matches) const {
        if (!groups_) return nullptr;
        const std::uint64_t wanted = low_bits * tag(hash);
        for (std::size_t at = first_group(hash);; at = (at + 1) & group_mask_) {
            Group& group = groups_[at];
            std::uint64_t tags = 0;
            std::memcpy(&tags, group.tags, sizeof tags);
            for (std::uint64_t hits = equal_bytes(tags, wanted); hits != 0; hits &= hits - 1) {
                const std::size_t slot = static_cast<std::size_t>(std::countr_zero(hits)) / 8;
                if (matches(group.values[slot], group.hints[slot])) return group.values + slot;
            }
            if ((tags & ~tags << 6 & high_bits) != 0) return nullptr;  // an empty slot ends every chain
        }
    }
    /// Fetches the group of a hash that will soon be looked for.
    void expect(std::uint64_t hash) const {
        if (groups_) fetch(groups_.get() + first_group(hash));
    }

    /// Whether the next insert needs start_over first.
    bool is_full() const { return used_ >= limit_; }
    std::size_t size() const { return size_; }
    /// Empties the index and makes room for at least `count` values. False, with nothing changed, without memory.
    [[nodiscard]] bool start_over(std::size_t count);
    /// Adds a value that is not there yet; there must be room.
    void insert(std::uint64_t hash, std::uint32_t value, std::uint32_t hint);
    void erase(const std::uint32_t* slot);
    std::size_t groups() const { return groups_ ? group_mask_ + 1 : 0; }
    /// The group in which the search for a hash begins.
    std::size_t first_group(std::uint64_t hash) const { return static_cast<std::size_t>(hash >> 7) & group_mask_; }
    /// Visits the values of one group; what is changed must keep its hash.
    template <class Visit>
    void for_each_of_group(std::size_t group, Visit&& visit) {
        for (std::size_t slot = 0; slot < group_size; ++slot) {
            if ((groups_[group].tags[slot] & 0x80) == 0) visit(groups_[group].values[slot]);
        }
    }
    std::size_t bytes() const { return groups_ ? (group_mask_ + 1) * sizeof(Group) : 0; }

private:
    static constexpr std::size_t group_size = 7;
    static constexpr std::uint64_t low_bits = 0x0101010101010101u;
    static constexpr std::uint64_t high_bits = 0x8080808080808080u;
    static constexpr std::uint8_t empty_tag = 0x80;
    static constexpr std::uint8_t erased_tag = 0xFE;
    static constexpr std::uint8_t no_slot_tag = 0xFF;  // of the last byte, which has no slot

    struct alignas(64) Group {
        std::uint8_t tags[group_size + 1];
        std::uint32_t values[group_size];
        std::uint32_t hints[group_size];
    };

    static std::uint64_t tag(std::uint64_t hash) { return hash & 0x7F; }
    // The high bit of each byte that is equal; a byte above an equal one may show too, so that each hit is looked at.
    static std::uint64_t equal_bytes(std::uint64_t bytes, std::uint64_t wanted) {
        const std::uint64_t differing = bytes ^ wanted;
        return (differing - low_bits) & ~differing & high_bits;
    }

    std::unique_ptr<Group[]> groups_;
    std::size_t group_mask_ = 0;
    std::size_t size_ = 0;
    std::size_t used_ = 0;   // slots that are not empty; erased ones count until start_over
    std::size_t limit_ = 0;  // at most five slots in seven are used, so that chains stay short
};

}  // namespace fs

#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace fs {

/// Finds 32-bit values by the hash of what they stand for: open addressing, in slots of hash and value. The slots lie in
/// the order of the hashes, so that growing writes them one after the other.
class HashIndex {
public:
    static constexpr std::uint32_t vacant = 0xFFFFFFFFu;  // no value is this
    static constexpr std::size_t npos = ~std::size_t{0};

    /// The slot of the value that `matches`, or npos.
    template <class Matches>
    std::size_t find(std::uint64_t hash, Matches&& matches) const {
        if (slots_.empty()) return npos;
        for (std::size_t at = home(upper(hash));; at = after(at)) {
            const Slot& slot = slots_[at];
            if (slot.value == vacant) return npos;
            if (slot.hash == upper(hash) && matches(slot.value)) return at;
        }
    }
    std::uint32_t value(std::size_t slot) const { return slots_[slot].value; }
    void set(std::size_t slot, std::uint32_t value) { slots_[slot].value = value; }

    /// Makes room for `count` values in all. May throw std::bad_alloc, and then changes nothing.
    void reserve(std::size_t count) {
        const std::size_t capacity = count + count / 3 + 2;
        if (capacity <= slots_.size()) return;
        std::vector<Slot> old(capacity);
        old.swap(slots_);
        size_ = 0;
        for (const Slot& slot : old) {
            if (slot.value != vacant) place(slot);
        }
    }
    /// Makes room for so many more, and for many more when there is none.
    void make_room(std::size_t more = 1) {
        if ((size_ + more) * 4 > slots_.size() * 3) reserve(size_ * 2 + 8);
    }
    /// Adds a value for which there is room, and which is not there yet.
    void insert(std::uint64_t hash, std::uint32_t value) { place({upper(hash), value}); }
    void erase(std::size_t slot) {
        --size_;
        // What lies behind moves up, so that no search ends early at the gap.
        std::size_t gap = slot;
        for (std::size_t at = after(gap); slots_[at].value != vacant; at = after(at)) {
            const std::size_t wanted = home(slots_[at].hash);
            const bool stays = gap < at ? wanted > gap && wanted <= at : wanted > gap || wanted <= at;
            if (stays) continue;
            slots_[gap] = slots_[at];
            gap = at;
        }
        slots_[gap] = {};
    }

    std::size_t bytes() const { return slots_.capacity() * sizeof(Slot); }

private:
    struct Slot {
        std::uint32_t hash = 0;
        std::uint32_t value = vacant;
    };

    static std::uint32_t upper(std::uint64_t hash) { return static_cast<std::uint32_t>(hash >> 32); }
    std::size_t home(std::uint32_t hash) const {
        return static_cast<std::size_t>(std::uint64_t{hash} * slots_.size() >> 32);
    }
    std::size_t after(std::size_t at) const { return at + 1 == slots_.size() ? 0 : at + 1; }
    void place(const Slot& slot) {
        std::size_t at = home(slot.hash);
        while (slots_[at].value != vacant) at = after(at);
        slots_[at] = slot;
        ++size_;
    }

    std::vector<Slot> slots_;  // at most three in four are used
    std::size_t size_ = 0;
};

}  // namespace fs

#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace container {

/// A map from 32-bit keys, made for many insertions: items lie in their order of arrival, found through slots by linear
/// probing. Items are replaced, never erased.
template <class Value>
class HashTable {
public:
    struct Item {
        std::uint32_t key;
        Value value;
    };

    const std::vector<Item>& items() const { return items_; }

    const Value* Find(std::uint32_t key) const {
        if (slots_.empty()) return nullptr;
        const std::uint32_t item = slots_[SlotOf(key)];
        return item != 0 ? &items_[item - 1].value : nullptr;
    }

    void Set(std::uint32_t key, const Value& value) {
        if ((items_.size() + 1) * 2 > slots_.size()) Grow();
        std::uint32_t& slot = slots_[SlotOf(key)];
        if (slot != 0) {
            items_[slot - 1].value = value;
            return;
        }
        items_.push_back({key, value});
        slot = static_cast<std::uint32_t>(items_.size());
    }

private:
    /// The slot that holds the key, or the empty one where it would stand.
    std::size_t SlotOf(std::uint32_t key) const {
        // Callers' hashes may be anything, also small numbers in a row: spread them.
        std::size_t slot = (key * 0x9E3779B97F4A7C15u >> 32) & (slots_.size() - 1);
        while (slots_[slot] != 0 && items_[slots_[slot] - 1].key != key) slot = (slot + 1) & (slots_.size() - 1);
        return slot;
    }

    void Grow() {
        slots_.assign(slots_.empty() ? 16 : slots_.size() * 2, 0);
        for (std::size_t i = 0; i < items_.size(); ++i)
            slots_[SlotOf(items_[i].key)] = static_cast<std::uint32_t>(i + 1);
    }

    std::vector<Item> items_;
    std::vector<std::uint32_t> slots_;  // 0: empty, else the item's number + 1; a power of two of them
};

}  // namespace container

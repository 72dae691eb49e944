#include "engine/filesystem/sources/name_index.h"

namespace fs {

bool NameIndex::start_over(std::size_t count) {
    std::size_t slots = std::bit_ceil(count < 14 ? std::size_t{16} : count);
    if (slots - slots / 8 < count + 1) slots *= 2;
    PodArray<std::uint8_t> tags;
    PodArray<std::uint32_t> values;
    std::uint8_t* bytes = tags.reserve(slots) ? tags.extend(slots) : nullptr;
    if (!bytes || !values.reserve(slots) || !values.extend(slots)) return false;
    std::memset(bytes, empty_tag, slots);
    tags_ = std::move(tags);
    values_ = std::move(values);
    group_mask_ = slots / group_size - 1;
    size_ = used_ = 0;
    limit_ = slots - slots / 8;
    return true;
}

void NameIndex::insert(std::uint64_t hash, std::uint32_t value) {
    for (std::size_t group = first_group(hash);; group = (group + 1) & group_mask_) {
        const std::uint64_t free = load_group(group) & high_bits;  // empty or erased
        if (free == 0) continue;
        const std::size_t slot = group * group_size + first_byte(free);
        if (tags_[slot] == empty_tag) ++used_;
        tags_[slot] = static_cast<std::uint8_t>(tag(hash));
        values_[slot] = value;
        ++size_;
        return;
    }
}

void NameIndex::erase(const std::uint32_t* slot) {
    tags_[static_cast<std::size_t>(slot - values_.data())] = erased_tag;
    --size_;
}

void NameIndex::clear() {
    tags_.clear();
    values_.clear();
    group_mask_ = size_ = used_ = limit_ = 0;
}

}  // namespace fs

#include "engine/filesystem/sources/directory/name_index.h"

#include <new>

namespace fs {

bool NameIndex::start_over(std::size_t count) {
    constexpr std::size_t used_of_group = group_size - 2;
    const std::size_t groups = std::bit_ceil((count + used_of_group - 1) / used_of_group);
    std::unique_ptr<Group[]> made(new (std::nothrow) Group[groups]);
    if (!made) return false;
    for (std::size_t i = 0; i < groups; ++i) {
        std::memset(made[i].tags, empty_tag, group_size);
        made[i].tags[group_size] = no_slot_tag;
    }
    groups_ = std::move(made);
    group_mask_ = groups - 1;
    size_ = used_ = 0;
    limit_ = groups * used_of_group;
    return true;
}

void NameIndex::insert(std::uint64_t hash, std::uint32_t value, std::uint32_t hint) {
    for (std::size_t at = first_group(hash);; at = (at + 1) & group_mask_) {
        Group& group = groups_[at];
        std::size_t slot = 0;
        while (slot < group_size && (group.tags[slot] & 0x80) == 0) ++slot;  // past those in use
        if (slot == group_size) continue;
        if (group.tags[slot] == empty_tag) ++used_;
        group.tags[slot] = static_cast<std::uint8_t>(tag(hash));
        group.values[slot] = value;
        group.hints[slot] = hint;
        ++size_;
        return;
    }
}

void NameIndex::erase(const std::uint32_t* slot) {
    const auto offset = reinterpret_cast<const unsigned char*>(slot) - reinterpret_cast<unsigned char*>(groups_.get());
    Group& group = groups_[static_cast<std::size_t>(offset) / sizeof(Group)];
    group.tags[slot - group.values] = erased_tag;
    --size_;
}

}  // namespace fs

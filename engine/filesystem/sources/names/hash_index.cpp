#include "engine/filesystem/sources/names/hash_index.h"

namespace fs {

void HashIndex::reserve(std::size_t count) {
    const std::size_t capacity = count + count / 3 + 2;
    if (capacity <= slots_.size()) return;
    std::vector<Slot> old(capacity);
    old.swap(slots_);
    size_ = 0;
    for (const Slot& slot : old) {
        if (slot.value != vacant) place(slot);
    }
}

void HashIndex::place(const Slot& slot) {
    std::size_t at = home(slot.hash);
    while (slots_[at].value != vacant) at = after(at);
    slots_[at] = slot;
    ++size_;
}

// What lies behind moves up, so that no search ends early at the gap.
void HashIndex::erase(std::size_t slot) {
    --size_;
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

}  // namespace fs

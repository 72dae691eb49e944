#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <engine/filesystem/registry.h>
#include <engine/filesystem/sources/pack.h>

#include "engine/filesystem/c_interface/call.h"

namespace fs::c {

/// Texts in one block, each with its zero byte, and what else is known of each where there is more.
struct List {
    std::string block;
    std::vector<std::size_t> starts;
    std::vector<SFsSourceInfo> sources;
    std::vector<SFsPackEntry> entries;

    void add(std::string_view text) {
        starts.push_back(block.size());
        block.append(text).push_back('\0');
    }
};

/// A handle to the list that `fill(list)` has filled; null, with the failure stored, when it is false or throws.
template <typename Fill>
enginefs_list* make_list(const char* path, Fill&& fill) noexcept {
    return guarded<enginefs_list*>(path, nullptr, [&]() -> enginefs_list* {
        auto list = std::make_unique<List>();
        return fill(*list) ? give<enginefs_list>(std::move(list)) : nullptr;
    });
}

/// The item of this index; null, with the failure stored, when there is none.
template <typename Item>
const Item* item_at(const std::vector<Item>& items, std::uint64_t index) {
    if (index < items.size()) return &items[static_cast<std::size_t>(index)];
    return refuse_argument("The list has no such item."), nullptr;
}

/// Fills `out` with what `describe(item)` makes of the item of this index of one of the list's vectors.
template <typename Item, typename Struct, typename Describe>
int put_item(const enginefs_list* list, std::vector<Item> List::*items, std::uint64_t index, Struct* out,
             Describe describe) noexcept {
    return status_of(list, [&](const List& texts) {
        const Item* const item = item_at(texts.*items, index);
        return item != nullptr && put(out, describe(*item));
    });
}

}  // namespace fs::c

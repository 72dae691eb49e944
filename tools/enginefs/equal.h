#pragma once

#include <algorithm>
#include <vector>

#include "names.h"

/// Whether two open files have the same bytes. False when one is null or cannot be read.
bool same_bytes(SFsFile* first, SFsFile* second);

/// Items that are the same, together.
template <class Item, class Same>
std::vector<std::vector<Item>> split_by(const std::vector<Item>& items, const Same& same) {
    std::vector<std::vector<Item>> classes;
    for (const Item& item : items) {
        const auto known = std::ranges::find_if(classes, [&](const auto& all) { return same(all[0], item); });
        if (known == classes.end())
            classes.push_back({item});
        else
            known->push_back(item);
    }
    return classes;
}

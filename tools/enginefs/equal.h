#pragma once

#include <algorithm>
#include <cstdint>
#include <map>
#include <vector>

#include "names.h"

/// Whether two open files have the same bytes. The command fails, and says why of `told`, when one is null or cannot be
/// read.
bool same_bytes(SFsFile* first, SFsFile* second, const std::string& told);

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

/// Calls `take(size, crc, files)` for the files of equal content in each group of files of one size. Of every file is asked
/// `crc_of(file, size, crc)`; false when it answers so, and the file is left out. Those of one checksum are compared by `same`.
template <class Sizes, class CrcOf, class Same, class Take>
bool find_equal(const Sizes& sizes, const CrcOf& crc_of, const Same& same, const Take& take) {
    bool good = true;
    for (const auto& [size, files] : sizes) {
        std::map<std::uint32_t, typename Sizes::mapped_type> checksums;
        for (const auto& file : files) {
            std::uint32_t crc = 0;
            const bool is_known = crc_of(file, size, crc);
            if (is_known) checksums[crc].push_back(file);
            good = is_known && good;
        }
        for (const auto& [crc, group] : checksums)
            for (const auto& equal : split_by(group, same))
                if (equal.size() > 1) take(size, crc, equal);
    }
    return good;
}

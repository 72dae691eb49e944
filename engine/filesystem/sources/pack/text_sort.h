#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

namespace fs {

/// A run of places in an order.
struct TextRun {
    std::uint32_t first;
    std::uint32_t last;  // just behind it
};

/// The indices of `texts` in the ascending order of the texts by unsigned bytes; equal texts in that of their indices.
/// The texts hold no zero bytes. `equal`, if given, gets the runs of two or more equal texts, in any order.
std::vector<std::uint32_t> sorted_by_text(const std::vector<std::string_view>& texts,
                                          std::vector<TextRun>* equal = nullptr);

}  // namespace fs

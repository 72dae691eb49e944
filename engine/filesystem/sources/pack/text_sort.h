#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

namespace fs {

/// Puts `order`, which holds indices into `texts`, into the ascending order of the texts by unsigned bytes. Equal texts
/// keep the order in which they stood. The texts hold no zero bytes.
void sort_by_text(std::vector<std::uint32_t>& order, const std::vector<std::string_view>& texts);

}  // namespace fs

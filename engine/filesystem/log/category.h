#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "engine/kernel/bytes.h"

namespace logging {

inline constexpr std::size_t category_name_length = 16;

/// The first 16 bytes of a category's name, zeros after its end: how categories are stored and compared.
struct CategoryKey {
    std::uint64_t words[2] = {0, 0};
    bool operator==(const CategoryKey&) const = default;
};

/// Runs for every message, hence a few whole loads instead of a loop over characters.
inline CategoryKey category_key(const char* name) {
    CategoryKey key;
    if (name == nullptr) return key;
    const std::size_t length = strnlen(name, category_name_length);
    if (length > 8) {
        const auto* const bytes = reinterpret_cast<const std::uint8_t*>(name);
        key.words[0] = kernel::load_u64(bytes);
        // What stands in the first word already is shifted out.
        key.words[1] = kernel::load_u64(bytes + length - 8) >> 8 * (category_name_length - length);
        return key;
    }
    for (std::size_t i = 0; i < length; ++i) {
        key.words[0] |= static_cast<std::uint64_t>(static_cast<unsigned char>(name[i])) << i * 8;
    }
    return key;
}

}  // namespace logging

#pragma once

#include <cstdint>

namespace logging {

inline constexpr int category_name_length = 16;

/// The first 16 bytes of a category's name, zeros after its end: how categories are stored and compared.
struct CategoryKey {
    std::uint64_t words[2] = {0, 0};
    bool operator==(const CategoryKey&) const = default;
};

inline CategoryKey category_key(const char* name) {
    CategoryKey key;
    if (name == nullptr) return key;
    for (int i = 0; i < category_name_length && name[i] != '\0'; ++i) {
        key.words[i / 8] |= static_cast<std::uint64_t>(static_cast<unsigned char>(name[i])) << (i % 8 * 8);
    }
    return key;
}

}  // namespace logging

#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include <engine/filesystem/log.h>

#include "engine/kernel/bytes.h"

// Levels, codes and categories in the forms in which the log compares and shows them.

namespace logging {

/// A four-character code as one number, first character most significant.
constexpr std::uint32_t code(std::string_view text) {
    std::uint32_t id = 0;
    for (const char letter : text) id = id << 8 | static_cast<unsigned char>(letter);
    return id;
}

/// The four letters of a level; "" for a value that is none.
constexpr const char* level_tag(Log::ELevel::TYPE level) {
    constexpr const char* tags[] = {"NONE", "FATL", "ERRR", "INFO", "WARN", "DEBG", "VERB", "VER1",
                                    "VER2", "VER3", "VER4", "VER5", "VER6", "VER7", "VER8", "VERE"};
    static_assert(sizeof(tags) / sizeof(tags[0]) == Log::ELevel::VERE + 1);
    return level <= Log::ELevel::VERE ? tags[level] : "";
}

/// The filter id of a level: its tag as a code; 0 for a value that is no level.
constexpr std::uint32_t level_id(Log::ELevel::TYPE level) { return code(level_tag(level)); }

/// What labels may hold; everything else is shown as "_".
constexpr bool is_label_character(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '.';
}

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

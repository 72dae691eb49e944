#pragma once

#include <cstdint>

#include <engine/filesystem/log.h>

namespace logging {

/// A four-character code as one number, first character most significant.
constexpr std::uint32_t code(const char (&text)[5]) {
    std::uint32_t id = 0;
    for (int i = 0; i < 4; ++i) id = id << 8 | static_cast<unsigned char>(text[i]);
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
constexpr std::uint32_t level_id(Log::ELevel::TYPE level) {
    std::uint32_t id = 0;
    for (const char* at = level_tag(level); *at != '\0'; ++at) id = id << 8 | static_cast<unsigned char>(*at);
    return id;
}

/// What labels may hold; everything else is shown as "_".
constexpr bool is_label_character(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '.';
}

}  // namespace logging

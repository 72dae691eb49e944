#pragma once

#include <cstdlib>
#include <string_view>

namespace fs {

/// `dir` followed by `name` in a block of the C allocator, as an open file holds its name; null without memory.
inline char* joined_name(std::string_view dir, std::string_view name) {
    auto* text = static_cast<char*>(std::malloc(dir.size() + name.size() + 1));
    if (!text) return nullptr;
    dir.copy(text, dir.size());
    name.copy(text + dir.size(), name.size());
    text[dir.size() + name.size()] = '\0';
    return text;
}

}  // namespace fs

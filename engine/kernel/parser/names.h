#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>

namespace kernel::config {

constexpr char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c; }

inline bool equal_names(std::string_view a, std::string_view b) {
    return a.size() == b.size() &&
           std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) { return lower(x) == lower(y); });
}

struct NameHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view name) const {
        std::uint64_t hash = 0xCBF29CE484222325u;
        for (const char c : name) hash = (hash ^ static_cast<unsigned char>(lower(c))) * 0x100000001B3u;
        return static_cast<std::size_t>(hash ^ hash >> 32);
    }
};

struct NameEqual {
    using is_transparent = void;
    bool operator()(std::string_view a, std::string_view b) const { return equal_names(a, b); }
};

/// Names are the same in any case.
template <class Value>
using NameMap = std::unordered_map<std::string, Value, NameHash, NameEqual>;

}  // namespace kernel::config

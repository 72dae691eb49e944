#pragma once

#include <cstdint>

namespace fs::http {

/// Little-endian numbers, in packs and in the file of fetched blocks.
inline std::uint32_t load_u32(const char* bytes) {
    std::uint32_t number = 0;
    for (unsigned at = 4; at-- > 0;) number = number << 8 | static_cast<unsigned char>(bytes[at]);
    return number;
}

inline void store_u32(char (&bytes)[4], std::uint32_t number) {
    for (unsigned at = 0; at < 4; ++at) bytes[at] = static_cast<char>(number >> (8 * at));
}

}  // namespace fs::http

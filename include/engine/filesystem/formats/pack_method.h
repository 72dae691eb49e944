#pragma once

#include <cstdint>

/// How an entry of a pack is compressed, numbered as zip files number it. A pack source takes every other method for
/// DEFLATE, whose readers then find damage.
struct EFSPackMethod {
    enum TYPE : std::uint32_t { STORE = 0, DEFLATE = 8, ZSTD = 93 };
};

#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace fs {

/// Compresses whole entries, whichever library stands behind it, keeping its state for the next one.
/// Threads  one at a time.
class Compressor {
public:
    virtual ~Compressor() = default;

    /// What the data becomes at a level of the method's own, from 1 on; empty when that is longer than `most` bytes. May
    /// throw std::bad_alloc.
    virtual std::vector<std::uint8_t> compress(const void* data, std::size_t size, int level, std::size_t most) = 0;
};

}  // namespace fs

#pragma once

#include <cstddef>
#include <cstdint>

namespace kernel {

/// CRC-32 as RFC 1952 has it. `crc` is that of the bytes before, 0 at first; `data` may be null when `size` is 0.
std::uint32_t crc32(std::uint32_t crc, const void* data, std::size_t size);

}  // namespace kernel

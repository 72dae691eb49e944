#pragma once

#include <cstdint>

namespace fs {

/// No stream holds more than this in memory. A larger size can only come from a mistake or from damaged data, and is
/// refused before the allocator sees it.
inline constexpr std::uint64_t memory_limit = std::uint64_t{1} << 39;

}  // namespace fs

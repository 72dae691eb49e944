#pragma once

#include <cstdint>

namespace fs {

/// Makes the memory of an image larger: `size` bytes at least, `block` becoming `allocated` bytes. A small image lies in
/// the C allocator's memory, a large one in a block of the system's own, which grows without being copied where the
/// system can do that. False without memory; nothing has changed then.
bool enlarge_image(std::uint8_t*& block, std::uint64_t& allocated, std::uint64_t size);
void free_image(std::uint8_t* block, std::uint64_t allocated);

}  // namespace fs

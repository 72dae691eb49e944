#pragma once

#include <cstddef>

/// Large blocks of memory straight from the system. Growing one moves its pages and not its bytes, and its first use is
/// cheap, where the system has the means.

namespace platform {

/// What sizes of blocks are multiples of.
inline constexpr std::size_t block_step = std::size_t{2} << 20;

/// A new block, all zeros; null without memory.
void* allocate_block(std::size_t size);
/// The block made larger, elsewhere perhaps; the new part is zeros. Null without memory, and the old block stands.
void* grow_block(void* block, std::size_t old_size, std::size_t new_size);
void free_block(void* block, std::size_t size);

/// Has the system put memory behind a range, of any kind, in one go instead of at the first touch of each page: for what
/// is about to be written. Where the system has no means nothing happens.
void populate(void* range, std::size_t size);

}  // namespace platform

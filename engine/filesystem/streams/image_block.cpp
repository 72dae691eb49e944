#include "engine/filesystem/streams/image_block.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "engine/filesystem/streams/memory_limit.h"
#include "engine/platform/process.h"

namespace fs {

namespace {

constexpr std::uint64_t large_image = platform::block_step;  // from here on an image has a block of the system's

std::uint64_t round_up(std::uint64_t size) {
    return (size + platform::block_step - 1) / platform::block_step * platform::block_step;
}

/// Moves an image out of the C allocator's memory.
void* move_to_block(std::uint8_t* image, std::uint64_t used, std::size_t size) {
    void* const block = platform::allocate_block(size);
    if (block == nullptr) return nullptr;
    if (used != 0) std::memcpy(block, image, static_cast<std::size_t>(used));
    std::free(image);
    return block;
}

bool resize(std::uint8_t*& block, std::uint64_t& allocated, std::uint64_t size) {
    const bool large = size >= large_image;
    const auto bytes = static_cast<std::size_t>(large ? round_up(size) : size);
    void* larger = nullptr;
    if (!large)
        larger = std::realloc(block, bytes);
    else if (allocated < large_image)
        larger = move_to_block(block, allocated, bytes);
    else
        larger = platform::grow_block(block, static_cast<std::size_t>(allocated), bytes);
    if (larger == nullptr) return false;
    block = static_cast<std::uint8_t*>(larger);
    allocated = bytes;
    return true;
}

}  // namespace

bool enlarge_image(std::uint8_t*& block, std::uint64_t& allocated, std::uint64_t size) {
    if (size <= allocated) return true;
    if (size > memory_limit) return false;
    // In proportion to the image: growing by small steps would move it over and over.
    const std::uint64_t generous = std::max(size, allocated * 2);
    return resize(block, allocated, generous) || (generous != size && resize(block, allocated, size));
}

void free_image(std::uint8_t* block, std::uint64_t allocated) {
    if (block == nullptr) return;
    if (allocated < large_image)
        std::free(block);
    else
        platform::free_block(block, static_cast<std::size_t>(allocated));
}

}  // namespace fs

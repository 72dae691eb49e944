#include "engine/platform/memory.h"

#include <windows.h>

#include <cstring>

namespace platform {

void* allocate_block(std::size_t size) { return VirtualAlloc(nullptr, size, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE); }

// Pages cannot be moved here, so that growing copies.
void* grow_block(void* block, std::size_t old_size, std::size_t new_size) {
    void* const larger = allocate_block(new_size);
    if (larger == nullptr) return nullptr;
    std::memcpy(larger, block, old_size);
    free_block(block, old_size);
    return larger;
}

void free_block(void* block, std::size_t) { VirtualFree(block, 0, MEM_RELEASE); }

void populate(void*, std::size_t) {}

}  // namespace platform

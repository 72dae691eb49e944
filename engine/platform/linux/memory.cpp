#include "engine/platform/memory.h"

#include <sys/mman.h>

namespace platform {
namespace {

/// Large pages make touching a block for the first time several times cheaper. A kernel without them says so, and the
/// block is as good.
void* with_large_pages(void* block, std::size_t size) {
    if (block == MAP_FAILED) return nullptr;
    ::madvise(block, size, MADV_HUGEPAGE);
    return block;
}

}  // namespace

void* allocate_block(std::size_t size) {
    return with_large_pages(::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0), size);
}

void* grow_block(void* block, std::size_t old_size, std::size_t new_size) {
    return with_large_pages(::mremap(block, old_size, new_size, MREMAP_MAYMOVE), new_size);
}

void free_block(void* block, std::size_t size) { ::munmap(block, size); }

}  // namespace platform

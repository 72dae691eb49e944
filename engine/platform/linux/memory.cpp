#include "engine/platform/memory.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>

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

void populate(void* range, std::size_t size) {
#ifdef MADV_POPULATE_WRITE
    static const auto page = static_cast<std::uintptr_t>(::sysconf(_SC_PAGESIZE));
    const std::uintptr_t begin = (reinterpret_cast<std::uintptr_t>(range) + page - 1) / page * page;
    const std::uintptr_t end = (reinterpret_cast<std::uintptr_t>(range) + size) / page * page;
    if (begin < end) ::madvise(reinterpret_cast<void*>(begin), end - begin, MADV_POPULATE_WRITE);
#else
    static_cast<void>(range);
    static_cast<void>(size);
#endif
}

}  // namespace platform

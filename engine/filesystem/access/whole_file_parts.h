#pragma once

#include <cstdint>
#include <memory>

#include <engine/filesystem/contract/file.h>

#include "engine/filesystem/contract/file_ptr.h"

namespace fs {

/// The file's length; all bits set, with the failure stored, when it does not tell.
std::uint64_t known_length(SFsFile& file, const char* path);
/// Reads `size` bytes; what does not come is filled with zeros.
void read_filled(SFsFile& file, void* buffer, std::uint64_t size);
/// A block of the C allocator, of one byte when `size` is 0. Null, with the failure stored, without memory.
void* allocate(std::uint64_t size, const char* path);

/// A buffer that pieces of files pass through. It begins at a page, since the system copies whole pages into and out of
/// its cache fastest that way.
class PieceBuffer {
public:
    PieceBuffer(std::uint64_t size, const char* path);

    void* data() const { return data_; }  // null, with the failure stored, without memory

private:
    std::unique_ptr<void, void (*)(void*)> block_;
    void* data_ = nullptr;
};

/// Reads all of it, or stores the failure and answers false.
bool read_checked(SFsFile& file, const char* path, void* buffer, std::uint64_t size);
/// Writes all of it, or stores the failure and answers false.
bool write_checked(SFsFile& file, const char* path, const void* data, std::uint64_t size);

}  // namespace fs

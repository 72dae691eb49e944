#include "engine/filesystem/contract/write_all.h"

#include "engine/filesystem/contract/error.h"

namespace fs {

bool write_all(SFsFile& file, const char* path, const void* data, std::uint64_t size) {
    ErrorScope scope;
    const auto* next = static_cast<const std::uint8_t*>(data);
    std::uint64_t done = 0;
    for (std::uint64_t left = size; left != 0; left -= done, next += done) {
        done = file.write(next, left);
        if (done != 0 && done <= left) continue;
        const bool is_full = done == 0 || left != size;
        return fail_unless_told(scope, is_full ? EFSError::DISK_FULL : EFSError::IO, path,
                                is_full ? "The file takes no more bytes." : "The file cannot be written.");
    }
    return true;
}

}  // namespace fs

#pragma once

#include <dirent.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>

#include "engine/platform/name_rules.h"
#include "engine/platform/posix/system_error.h"

namespace platform {

/// One record as the kernel's getdents64 lays it out; the name follows and ends with a NUL.
struct DirectoryRecord {
    std::uint64_t inode;
    std::int64_t offset;
    unsigned short length;
    unsigned char kind;  // DT_REG …, DT_UNKNOWN where the file system does not say
    char name[1];
};

/// Hands each record of the open directory but "." and ".." to `visit`. False with errno when reading failed.
/// readdir would copy everything once more through a smaller buffer of its own.
template <class Visit>
bool read_directory(int directory, Visit visit) {
    alignas(DirectoryRecord) char buffer[64 * 1024];
    for (;;) {
        const auto got = retry_interrupted([&] { return syscall(SYS_getdents64, directory, buffer, sizeof(buffer)); });
        if (got <= 0) return got == 0;
        for (std::size_t at = 0; at < static_cast<std::size_t>(got);) {
            const auto* record = reinterpret_cast<const DirectoryRecord*>(buffer + at);
            const char* const name = buffer + at + offsetof(DirectoryRecord, name);
            at += record->length;
            if (name[0] != '.' || !is_dots(name)) visit(*record, name);
        }
    }
}

}  // namespace platform

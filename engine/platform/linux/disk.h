#pragma once

#include <dirent.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <ctime>

#include "engine/platform/posix/system.h"
#include "engine/platform/text.h"

namespace platform {

/// Opens a directory for looking up names below it alone: no right to read it is needed.
inline constexpr int open_for_lookup = O_PATH | O_DIRECTORY | O_CLOEXEC;
/// Bypasses the system's cache.
inline constexpr int open_direct = O_DIRECT;

/// Of madvise, to fetch a mapping's pages: MADV_POPULATE_READ, which older headers do not name and older kernels not know.
inline constexpr int populate_read = 22;

/// The clock by which a local disk stamps its files, in nanoseconds. It moves in ticks.
inline std::int64_t stamp_clock_ns() {
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME_COARSE, &now);
    return to_ns(now);
}

/// Whether a file system has a device of this machine behind it, and so none behind a network.
inline bool is_local_device(dev_t device) { return major(device) != 0; }

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

#pragma once

#include <cstdint>

namespace platform {

/// What a failed call of the seam means, the same on every system.
enum class Failure : std::uint8_t {
    NONE,
    NOT_FOUND,      // no such file, or a directory of its path is missing
    ACCESS_DENIED,  // the system refuses this caller
    IN_USE,         // sharing: someone holds the file in a way that excludes this use
    ALREADY_EXISTS,
    NOT_EMPTY,  // a directory that still holds something
    DISK_FULL,
    PATH_TOO_LONG,  // more than max_path_bytes
    NOT_REGULAR,    // a directory, device, pipe or socket where a file is wanted
    READ_ONLY,      // the file's own read-only attribute, or a read-only file system
    INVALID_NAME,   // a name that Windows could not hold, or an empty path
    INVALID_HANDLE,
    ABORTED,
    OUT_OF_MEMORY,
    TOO_MANY_FILES,  // the process or the system may open no more
    IO,              // the device failed to read or write
    OTHER,
};

struct Error {
    Failure failure = Failure::NONE;
    std::int32_t os_code = 0;  // errno or GetLastError, 0 when the seam itself refused
};

/// The calling thread's most recent failure of a seam call. A success leaves it alone.
Error last_error();

}  // namespace platform

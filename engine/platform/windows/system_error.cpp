#include "engine/platform/windows/system_error.h"

#include <windows.h>

namespace platform {

Failure failure_of(std::uint32_t os_code) {
    switch (os_code) {
        case ERROR_FILE_NOT_FOUND:
        case ERROR_PATH_NOT_FOUND:
        case ERROR_INVALID_DRIVE:
        case ERROR_NOT_READY:
        case ERROR_BAD_NETPATH:
        case ERROR_BAD_NET_NAME:
        case ERROR_INVALID_NAME:  // nothing can have such a name
        case ERROR_BAD_PATHNAME:
        case ERROR_DIRECTORY:  // a file where the path has a directory
        case ERROR_CANT_RESOLVE_FILENAME:
            return Failure::NOT_FOUND;
        case ERROR_ACCESS_DENIED:
        case ERROR_PRIVILEGE_NOT_HELD:
            return Failure::ACCESS_DENIED;
        case ERROR_SHARING_VIOLATION:
        case ERROR_LOCK_VIOLATION:
        case ERROR_BUSY:
        case ERROR_DELETE_PENDING:
        case ERROR_USER_MAPPED_FILE:
            return Failure::IN_USE;
        case ERROR_FILE_EXISTS:
        case ERROR_ALREADY_EXISTS:
            return Failure::ALREADY_EXISTS;
        case ERROR_DIR_NOT_EMPTY:
            return Failure::NOT_EMPTY;
        case ERROR_DISK_FULL:
        case ERROR_HANDLE_DISK_FULL:
        case ERROR_FILE_TOO_LARGE:
        case 1295:  // the quota of a user, which not every header names
            return Failure::DISK_FULL;
        case ERROR_FILENAME_EXCED_RANGE:
        case ERROR_BUFFER_OVERFLOW:
            return Failure::PATH_TOO_LONG;
        case ERROR_WRITE_PROTECT:
            return Failure::READ_ONLY;
        case ERROR_NOT_ENOUGH_MEMORY:
        case ERROR_OUTOFMEMORY:
        case ERROR_NO_SYSTEM_RESOURCES:
        case ERROR_COMMITMENT_LIMIT:
            return Failure::OUT_OF_MEMORY;
        case ERROR_TOO_MANY_OPEN_FILES:
            return Failure::TOO_MANY_FILES;
        case ERROR_CRC:
        case ERROR_READ_FAULT:
        case ERROR_WRITE_FAULT:
        case ERROR_IO_DEVICE:
        case ERROR_SECTOR_NOT_FOUND:
        case ERROR_FILE_CORRUPT:
        case ERROR_DISK_CORRUPT:
            return Failure::IO;
        case ERROR_INVALID_HANDLE:
            return Failure::INVALID_HANDLE;
        case ERROR_OPERATION_ABORTED:
            return Failure::ABORTED;
        default:
            return Failure::OTHER;
    }
}

bool fail_os(std::uint32_t os_code) { return fail(failure_of(os_code), static_cast<std::int32_t>(os_code)); }

bool fail_last() { return fail_os(GetLastError()); }

}  // namespace platform

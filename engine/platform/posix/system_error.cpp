#include "engine/platform/posix/system_error.h"

namespace platform {

Failure failure_of(int os_code) {
    switch (os_code) {
        case ENOENT:
        case ENOTDIR:
        case ELOOP:
            return Failure::NOT_FOUND;
        case EACCES:
        case EPERM:
        case EBADF:  // the descriptor is open, but not for this
            return Failure::ACCESS_DENIED;
        case EBUSY:
        case ETXTBSY:
        case EWOULDBLOCK:
            return Failure::IN_USE;
        case EEXIST:
            return Failure::ALREADY_EXISTS;
        case ENOTEMPTY:
            return Failure::NOT_EMPTY;
        case ENOSPC:
        case EDQUOT:
        case EFBIG:
            return Failure::DISK_FULL;
        case ENAMETOOLONG:
            return Failure::PATH_TOO_LONG;
        case EISDIR:
        case ENXIO:  // a socket, or a pipe that nobody reads
        case ENODEV:
            return Failure::NOT_REGULAR;
        case EROFS:
            return Failure::READ_ONLY;
        case ENOMEM:
        case ENOBUFS:
            return Failure::OUT_OF_MEMORY;
        case EMFILE:
        case ENFILE:
            return Failure::TOO_MANY_FILES;
        case EIO:
        case ESTALE:  // of a network's file system
            return Failure::IO;
        default:
            return Failure::OTHER;
    }
}

int os_code_of(Failure failure) {
    for (const int code :
         {ENOENT, EACCES, EBUSY, EEXIST, ENOTEMPTY, ENOSPC, ENAMETOOLONG, EISDIR, EROFS, ENOMEM, EMFILE}) {
        if (failure_of(code) == failure) return code;
    }
    return EIO;
}

bool fail_os(int os_code) { return fail(failure_of(os_code), os_code); }

}  // namespace platform

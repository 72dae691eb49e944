#include "engine/platform/error.h"

#include "engine/platform/posix/system_error.h"

namespace platform {
namespace {
constinit thread_local Error thread_error;
}  // namespace

Error last_error() { return thread_error; }

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
        default:
            return Failure::OTHER;
    }
}

bool fail(Failure failure, int os_code) {
    thread_error = Error{.failure = failure, .os_code = os_code};
    return false;
}

bool fail_os(int os_code) { return fail(failure_of(os_code), os_code); }

}  // namespace platform

#include "engine/platform/error.h"

#include "engine/platform/fail.h"

namespace platform {
namespace {
constinit thread_local Error thread_error;
}  // namespace

Error last_error() { return thread_error; }

bool fail(Failure failure, std::int32_t os_code) {
    thread_error = Error{.failure = failure, .os_code = os_code};
    return false;
}

}  // namespace platform

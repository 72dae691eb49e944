#include "engine/platform/error.h"

#include "engine/platform/fail.h"
#include "engine/platform/per_thread.h"

namespace platform {
namespace {
constinit PerThread<Error, struct ThreadFailure> thread_error;
}  // namespace

Error last_error() { return thread_error; }

bool fail(Failure failure, std::int32_t os_code) {
    thread_error = Error{.failure = failure, .os_code = os_code};
    return false;
}

}  // namespace platform

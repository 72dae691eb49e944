#pragma once

#include <cerrno>

#include "engine/platform/error.h"

namespace platform {

/// The one place that says what an errno means to callers.
Failure failure_of(int os_code);

/// Each records the calling thread's failure and answers false, so that a failing path is one line.
bool fail(Failure failure, int os_code = 0);
bool fail_os(int os_code);

/// Calls `call` again as long as a signal interrupts it. It answers as system calls do: below zero with errno set.
template <class Call>
auto retry_interrupted(Call call) {
    for (;;) {
        const auto result = call();
        if (result >= 0 || errno != EINTR) return result;
    }
}

}  // namespace platform

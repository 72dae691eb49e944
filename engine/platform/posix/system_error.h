#pragma once

#include <cerrno>

#include "engine/platform/fail.h"

namespace platform {

/// The one place that says what an errno means to callers.
Failure failure_of(int os_code);
/// An errno that means this, for failures on order; EIO where there is none.
int os_code_of(Failure failure);

/// Records the failure that an errno means, and answers false.
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

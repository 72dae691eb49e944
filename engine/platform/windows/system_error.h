#pragma once

#include <cstdint>

#include "engine/platform/error.h"

namespace platform {

/// The one place that says what a code of GetLastError means to callers.
Failure failure_of(std::uint32_t os_code);

/// Each records the calling thread's failure and answers false, so that a failing path is one line.
bool fail(Failure failure, std::uint32_t os_code = 0);
bool fail_os(std::uint32_t os_code);
/// With the code of the call that has just failed.
bool fail_last();

}  // namespace platform

#pragma once

#include <cstdint>

#include "engine/platform/fail.h"

namespace platform {

/// The one place that says what a code of GetLastError means to callers.
Failure failure_of(std::uint32_t os_code);

/// Records the failure that a code means, and answers false.
bool fail_os(std::uint32_t os_code);
/// With the code of the call that has just failed.
bool fail_last();

}  // namespace platform

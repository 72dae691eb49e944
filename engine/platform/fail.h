#pragma once

#include <cstdint>

#include "engine/platform/error.h"
#include "engine/platform/faults.h"

namespace platform {

/// Records the calling thread's failure and answers false, so that a failing path is one line.
bool fail(Failure failure, std::int32_t os_code = 0);

/// Whether a test has ordered this call to fail; the failure is recorded.
inline bool meets_fault(FaultPoint point) {
    const auto fault = fault_at(point);
    return fault && !fail(*fault);
}

}  // namespace platform

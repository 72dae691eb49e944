#pragma once

#include <cstdint>

#include "engine/platform/faults.h"
#include "engine/platform/windows/system_error.h"

namespace platform {

/// Whether a test has ordered this call to fail; the failure is recorded.
inline bool meets_fault(FaultPoint point) {
    const auto fault = fault_at(point);
    return fault && !fail(*fault);
}

/// The same for reading and writing, where a fault that is no failure halves `size`.
inline bool meets_fault(FaultPoint point, std::uint64_t& size) {
    const auto fault = fault_at(point);
    if (!fault) return false;
    if (*fault != Failure::NONE) return !fail(*fault);
    size /= 2;
    return false;
}

}  // namespace platform

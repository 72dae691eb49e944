#pragma once

#include "engine/platform/crash.h"

namespace platform {

/// Writes the readable report. Uses system calls alone.
bool write_report(const DumpRequest& request);

}  // namespace platform

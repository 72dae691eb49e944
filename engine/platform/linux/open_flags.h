#pragma once

#include <fcntl.h>

namespace platform {

/// Opens a directory for looking up names below it alone: no right to read it is needed.
inline constexpr int open_for_lookup = O_PATH | O_DIRECTORY | O_CLOEXEC;
/// Bypasses the system's cache.
inline constexpr int open_direct = O_DIRECT;

}  // namespace platform

#pragma once

#include <engine/filesystem/access/monitor.h>

namespace fs {

/// Tells the monitor, if there is one, of a native open that succeeded. Throws what the monitor throws.
void notify_monitor(const char* path, EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags);

}  // namespace fs

#pragma once

#include <engine/filesystem/api.h>
#include <engine/filesystem/contract/flags.h>

namespace fs {

/// Hears of every native open. May be called under the registry's lock: it may read its arguments and call nothing of
/// fs::. An open fails (IO) when the monitor throws.
class IFsMonitor {
public:
    virtual void touch_file(const char* path, EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags) = 0;

protected:
    ~IFsMonitor() = default;
};

/// Stores the monitor (null: none; not owned) and returns the previous one.
ENGINE_FS_API IFsMonitor* set_monitor(IFsMonitor* monitor);
/// Tells the monitor, if there is one, of `path` with mode READ and no flags.
ENGINE_FS_API void monitor_touch_file(const char* path);

}  // namespace fs

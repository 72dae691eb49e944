#include "engine/filesystem/access/notify_monitor.h"

#include <atomic>

#include "engine/filesystem/contract/error.h"

namespace fs {
namespace {

constinit std::atomic<IFsMonitor*> current{nullptr};

}  // namespace

IFsMonitor* set_monitor(IFsMonitor* monitor) { return current.exchange(monitor, std::memory_order_acq_rel); }

void monitor_touch_file(const char* path) {
    guarded(path, [path] { notify_monitor(path, EFSMode::READ, FFSOpenFlags::NONE); });
}

void notify_monitor(const char* path, EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags) {
    IFsMonitor* const monitor = current.load(std::memory_order_acquire);
    if (monitor != nullptr) monitor->touch_file(path != nullptr ? path : "", mode, flags);
}

}  // namespace fs

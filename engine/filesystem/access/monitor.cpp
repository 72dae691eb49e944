#include "engine/filesystem/access/notify_monitor.h"

#include <atomic>

namespace fs {
namespace {

struct MonitorState {
    std::atomic<IFsMonitor*> monitor{nullptr};
};
MonitorState state;

}  // namespace

IFsMonitor* set_monitor(IFsMonitor* monitor) { return state.monitor.exchange(monitor, std::memory_order_acq_rel); }

void monitor_touch_file(const char* path) { notify_monitor(path, EFSMode::READ, FFSOpenFlags::NONE); }

void notify_monitor(const char* path, EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags) {
    IFsMonitor* const monitor = state.monitor.load(std::memory_order_acquire);
    if (monitor != nullptr) monitor->touch_file(path != nullptr ? path : "", mode, flags);
}

}  // namespace fs

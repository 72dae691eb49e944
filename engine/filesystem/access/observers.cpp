#include <atomic>
#include <unordered_set>
#include <utility>

#include <engine/filesystem/access/monitor.h>

#include "engine/filesystem/access/parts.h"
#include "engine/platform/threads.h"

// Who hears of opens: the monitor of native ones, and the record of names that were read.

namespace fs {

namespace {

constinit std::atomic<IFsMonitor*> current{nullptr};

struct AccessRecord {
    std::atomic<bool> on{false};
    platform::Mutex lock;
    ztl::vector<fs::string> names ENGINE_GUARDED_BY(lock);
    std::unordered_set<fs::string> noted ENGINE_GUARDED_BY(lock);
};

AccessRecord& access_record_state() { return platform::never_destroyed<AccessRecord>(); }

}  // namespace

IFsMonitor* set_monitor(IFsMonitor* monitor) { return current.exchange(monitor, std::memory_order_acq_rel); }

void monitor_touch_file(const char* path) {
    guarded(path, [path] { notify_monitor(path, EFSMode::READ, FFSOpenFlags::NONE); });
}

void notify_monitor(const char* path, EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags) {
    IFsMonitor* const monitor = current.load(std::memory_order_acquire);
    if (monitor != nullptr) monitor->touch_file(path != nullptr ? path : "", mode, flags);
}

void note_access(const fs::path& name) {
    AccessRecord& record = access_record_state();
    if (!record.on.load(std::memory_order_relaxed)) return;
    try {
        fs::string text = full_name(name);
        const platform::LockGuard guard(record.lock);
        if (!record.on.load(std::memory_order_relaxed)) return;  // switched off meanwhile
        const auto [place, is_new] = record.noted.insert(std::move(text));
        if (is_new) record.names.push_back(*place);
    } catch (...) {
        // A name is lost from the record for want of memory; the open that it tells of has succeeded.
    }
}

void record_access(bool on) {
    guarded(nullptr, [on] {
        AccessRecord& record = access_record_state();
        const platform::LockGuard guard(record.lock);
        if (on) {
            record.names.clear();
            record.noted.clear();
        }
        record.on.store(on, std::memory_order_relaxed);
    });
}

void get_access_record(ztl::vector<fs::string>& out) {
    out.clear();
    guarded(nullptr, [&] {
        AccessRecord& record = access_record_state();
        const platform::LockGuard guard(record.lock);
        out = record.names;
    });
}

}  // namespace fs

#pragma once

#include <chrono>

#include <engine/filesystem/contract/disk_use.h>

#include "engine/platform/threads.h"

namespace fs {

/// Spans one use of the disk: an open, a read, a listing. On a thread that must not use it, the outermost is counted,
/// logged and reported at its end; on any other it costs the look at one flag.
class DiskUse {
public:
    /// `action` is one of those of SFsDiskUse. A null name counts nothing.
    DiskUse(const char* action, const char* name) : action_(action) {
        if (is_forbidden) Begin(name);
    }
    DiskUse(const DiskUse&) = delete;
    DiskUse& operator=(const DiskUse&) = delete;
    ~DiskUse() {
        if (name_ != nullptr) End();
    }

    static inline constinit platform::PerThread<bool, DiskUse> is_forbidden;

private:
    void Begin(const char* name);
    void End();

    const char* const action_;
    const char* name_ = nullptr;  // null: nothing is counted
    std::chrono::steady_clock::time_point began_;
};

}  // namespace fs

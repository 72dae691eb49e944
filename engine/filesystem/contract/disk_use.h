#pragma once

#include <cstdint>

#include <engine/filesystem/contract/disk_use.h>

namespace fs {

/// Spans one use of the disk: an open, a read, a listing. On a thread that must not use it, the outermost is counted,
/// logged and reported at its end; on any other it costs the look at one flag.
class DiskUse {
public:
    enum class Action : std::uint8_t { OPEN, READ, LIST };

    /// A null name counts nothing.
    DiskUse(Action action, const char* name) : action_(action) {
        if (is_forbidden) Begin(name);
    }
    DiskUse(const DiskUse&) = delete;
    DiskUse& operator=(const DiskUse&) = delete;
    ~DiskUse() {
        if (name_ != nullptr) End();
    }

    static inline thread_local bool is_forbidden = false;

private:
    void Begin(const char* name);
    void End();

    const Action action_;
    const char* name_ = nullptr;  // null: nothing is counted
    std::int64_t began_ = 0;      // nanoseconds
};

}  // namespace fs

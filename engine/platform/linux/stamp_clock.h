#pragma once

#include <sys/sysmacros.h>

#include <cstdint>
#include <ctime>

namespace platform {

inline std::int64_t clock_ns(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<std::int64_t>(now.tv_sec) * 1'000'000'000 + now.tv_nsec;
}
/// The clock by which a local disk stamps its files. It moves in ticks.
inline std::int64_t stamp_clock_ns() { return clock_ns(CLOCK_REALTIME_COARSE); }
inline std::int64_t steady_clock_ns() { return clock_ns(CLOCK_MONOTONIC); }

/// Whether a file system has a device of this machine behind it, and so none behind a network.
inline bool is_local_device(dev_t device) { return major(device) != 0; }

}  // namespace platform

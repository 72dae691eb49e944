#pragma once

#include <sys/sysmacros.h>

#include <cstdint>
#include <ctime>

namespace platform {

/// The clock by which a local disk stamps its files, in nanoseconds. It moves in ticks.
inline std::int64_t stamp_clock_ns() {
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME_COARSE, &now);
    return static_cast<std::int64_t>(now.tv_sec) * 1'000'000'000 + now.tv_nsec;
}

/// Whether a file system has a device of this machine behind it, and so none behind a network.
inline bool is_local_device(dev_t device) { return major(device) != 0; }

}  // namespace platform

#pragma once

#include <cstdint>
#include <ctime>

#include "engine/platform/clock.h"

namespace platform {

inline constexpr std::int64_t seconds_from_1601_to_1970 = 11'644'473'600;

inline std::int64_t to_ns(const timespec& time) {
    return static_cast<std::int64_t>(time.tv_sec) * 1'000'000'000 + time.tv_nsec;
}

inline std::int64_t to_file_time(const timespec& time) {
    return (static_cast<std::int64_t>(time.tv_sec) + seconds_from_1601_to_1970) * ticks_per_second + time.tv_nsec / 100;
}

inline timespec from_file_time(std::int64_t time) {
    std::int64_t seconds = time / ticks_per_second;
    std::int64_t ticks = time % ticks_per_second;
    if (ticks < 0) {
        ticks += ticks_per_second;
        --seconds;
    }
    return timespec{.tv_sec = static_cast<time_t>(seconds - seconds_from_1601_to_1970), .tv_nsec = ticks * 100};
}

}  // namespace platform

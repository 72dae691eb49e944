#include "engine/platform/clock.h"

#include <ctime>

#include "engine/platform/posix/system.h"

namespace platform {

std::int64_t now_utc() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return to_file_time(now);
}

LocalOffset local_offset_at(std::int64_t utc) {
    const time_t seconds = from_file_time(utc).tv_sec;
    tm fields{};
    if (localtime_r(&seconds, &fields) == nullptr) return {};
    return {.ticks = fields.tm_gmtoff * ticks_per_second, .is_summer = fields.tm_isdst > 0};
}

}  // namespace platform

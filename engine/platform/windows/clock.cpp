#include "engine/platform/clock.h"

#include "engine/platform/windows/system.h"

namespace platform {

std::int64_t now_utc() {
    FILETIME now{};
    GetSystemTimePreciseAsFileTime(&now);
    return to_file_time(now);
}

// By the rule of that year; by the present one where the system keeps no other.
LocalOffset local_offset_at(std::int64_t utc) {
    constexpr std::int64_t ticks_per_minute = 60 * ticks_per_second;
    constexpr WORD first_year = 1601;  // what the system's calendar form can hold
    const FILETIME time = from_file_time(utc);
    SYSTEMTIME universal{};
    const bool has_system_form = utc >= 0 && FileTimeToSystemTime(&time, &universal);
    TIME_ZONE_INFORMATION zone{};
    const WORD year = has_system_form ? universal.wYear : first_year;
    if (!GetTimeZoneInformationForYear(year, nullptr, &zone)) GetTimeZoneInformation(&zone);
    const std::int64_t standard = -ticks_per_minute * (zone.Bias + zone.StandardBias);
    SYSTEMTIME local{};
    FILETIME local_time{};
    if (!has_system_form || !SystemTimeToTzSpecificLocalTime(&zone, &universal, &local) ||
        !SystemTimeToFileTime(&local, &local_time)) {
        return {.ticks = standard};
    }
    const std::int64_t ticks = to_file_time(local_time) - utc;
    return {.ticks = ticks, .is_summer = ticks != standard};
}

}  // namespace platform

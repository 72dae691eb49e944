#pragma once

#include <chrono>
#include <cstdint>

/// The time, its calendar form, and what local time is ahead of it.

namespace platform {

struct CalendarTime {
    int year = 1601;
    int month = 1;  // 1 … 12
    int day = 1;
    int hour = 0;
    int minute = 0;
    int second = 0;
    int millisecond = 0;
};

/// File times are 64-bit counts of 100 ns since 1601-01-01.
inline constexpr std::int64_t ticks_per_second = 10'000'000;
inline constexpr std::int64_t ticks_per_ms = ticks_per_second / 1000;
using Ticks = std::chrono::duration<std::int64_t, std::ratio<1, ticks_per_second>>;
std::int64_t now_utc();
CalendarTime now_local();
CalendarTime to_calendar(std::int64_t file_time);
std::int64_t from_calendar(const CalendarTime& time);

/// Through the calendar form, hence in whole milliseconds, by the rule that held on that date; a repeated hour is taken
/// as standard time.
std::int64_t utc_to_local(std::int64_t utc);
std::int64_t local_to_utc(std::int64_t local);

/// What local time is ahead of universal time at one moment; for the two functions above. `utc` is in whole milliseconds.
struct LocalOffset {
    std::int64_t ticks = 0;
    bool is_summer = false;
    bool operator==(const LocalOffset&) const = default;
};
LocalOffset local_offset_at(std::int64_t utc);

}  // namespace platform

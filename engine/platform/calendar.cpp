// The calendar form of file times, worked out by arithmetic alone so that both systems agree over the whole range,
// times before 1601 included. Years follow the Gregorian rule throughout; days are counted from 1601-01-01, which
// begins a cycle of 400 years.
#include <algorithm>
#include <array>

#include "engine/platform/clock.h"

namespace platform {

namespace {

constexpr std::int64_t ticks_per_ms = 10'000;
constexpr std::int64_t ms_per_second = 1000;
constexpr std::int64_t ms_per_minute = 60 * ms_per_second;
constexpr std::int64_t ms_per_hour = 60 * ms_per_minute;
constexpr std::int64_t ms_per_day = 24 * ms_per_hour;
constexpr std::int64_t first_year = 1601;
constexpr std::int64_t days_per_year = 365;
constexpr std::int64_t days_per_4_years = 4 * days_per_year + 1;
constexpr std::int64_t days_per_100_years = 25 * days_per_4_years - 1;
constexpr std::int64_t days_per_400_years = 4 * days_per_100_years + 1;
// 64 bits reach a little further than 29,000 years either way.
constexpr int lowest_year = -27'000;
constexpr int highest_year = 30'000;

struct Division {
    std::int64_t quotient;
    std::int64_t remainder;  // never negative
};

Division floor_divide(std::int64_t value, std::int64_t by) {
    const std::int64_t remainder = value % by;
    return remainder < 0 ? Division{value / by - 1, remainder + by} : Division{value / by, remainder};
}

bool is_leap(std::int64_t year) { return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0); }

constexpr std::array<int, 13> days_before_month = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334, 365};

std::int64_t day_of_month_start(std::int64_t year, int month) {
    return days_before_month[static_cast<std::size_t>(month - 1)] + (month > 2 && is_leap(year) ? 1 : 0);
}

std::int64_t day_of_year_start(std::int64_t year) {
    const auto [cycles, years] = floor_divide(year - first_year, 400);
    return cycles * days_per_400_years + years * days_per_year + years / 4 - years / 100;
}

// `day` of a year that starts with day 0.
void set_month_and_day(CalendarTime& out, std::int64_t day) {
    out.month = 12;
    while (day_of_month_start(out.year, out.month) > day) --out.month;
    out.day = static_cast<int>(day - day_of_month_start(out.year, out.month)) + 1;
}

void set_date(CalendarTime& out, std::int64_t day) {
    auto [cycles, rest] = floor_divide(day, days_per_400_years);
    // The last day of a leap year would begin a period of its own.
    const std::int64_t centuries = std::min<std::int64_t>(rest / days_per_100_years, 3);
    rest -= centuries * days_per_100_years;
    const std::int64_t fours = rest / days_per_4_years;
    rest -= fours * days_per_4_years;
    const std::int64_t years = std::min<std::int64_t>(rest / days_per_year, 3);
    rest -= years * days_per_year;
    out.year = static_cast<int>(first_year + cycles * 400 + centuries * 100 + fours * 4 + years);
    set_month_and_day(out, rest);
}

}  // namespace

CalendarTime to_calendar(std::int64_t file_time) {
    const std::int64_t ms = floor_divide(file_time, ticks_per_ms).quotient;
    const auto [day, time] = floor_divide(ms, ms_per_day);
    CalendarTime out;
    set_date(out, day);
    out.hour = static_cast<int>(time / ms_per_hour);
    out.minute = static_cast<int>(time / ms_per_minute % 60);
    out.second = static_cast<int>(time / ms_per_second % 60);
    out.millisecond = static_cast<int>(time % ms_per_second);
    return out;
}

std::int64_t from_calendar(const CalendarTime& time) {
    const int year = std::clamp(time.year, lowest_year, highest_year);
    const int month = std::clamp(time.month, 1, 12);
    const std::int64_t day =
        day_of_year_start(year) + day_of_month_start(year, month) + std::clamp(time.day, 1, 31) - 1;
    const std::int64_t ms = std::clamp(time.hour, 0, 23) * ms_per_hour +
                            std::clamp(time.minute, 0, 59) * ms_per_minute +
                            std::clamp(time.second, 0, 59) * ms_per_second + std::clamp(time.millisecond, 0, 999);
    return (day * ms_per_day + ms) * ticks_per_ms;
}

}  // namespace platform

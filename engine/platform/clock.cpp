// Calendar and local time, worked out here so that both systems agree over the whole range of 64 bits, times before 1601
// included. A system only says what local time is ahead of universal time at one moment.
#include "engine/platform/clock.h"

#include <algorithm>
#include <limits>

namespace platform {

namespace {

using std::chrono::milliseconds;
constexpr std::chrono::sys_days first_day = std::chrono::year(1601) / 1 / 1;

// 64 bits reach a little further than 29,000 years either way.
constexpr int lowest_year = -27'000;
constexpr int highest_year = 30'000;

/// Times so near the end of 64 bits that the sum would wrap stay where they are.
std::int64_t shift(std::int64_t time, std::int64_t by) {
    constexpr std::int64_t lowest = std::numeric_limits<std::int64_t>::min();
    constexpr std::int64_t highest = std::numeric_limits<std::int64_t>::max();
    if (by > 0 ? time > highest - by : time < lowest - by) return time;
    return time + by;
}

std::int64_t whole_ms(std::int64_t time) {
    const std::int64_t part = time % ticks_per_ms;
    return part < 0 ? shift(time, -part - ticks_per_ms) : time - part;
}

}  // namespace

CalendarTime to_calendar(std::int64_t file_time) {
    const auto time = std::chrono::floor<milliseconds>(Ticks(file_time));
    const auto day = std::chrono::floor<std::chrono::days>(time);
    const std::chrono::year_month_day date(first_day + day);
    const std::chrono::hh_mm_ss clock(time - day);
    return {.year = int(date.year()),
            .month = static_cast<int>(unsigned(date.month())),
            .day = static_cast<int>(unsigned(date.day())),
            .hour = static_cast<int>(clock.hours().count()),
            .minute = static_cast<int>(clock.minutes().count()),
            .second = static_cast<int>(clock.seconds().count()),
            .millisecond = static_cast<int>(clock.subseconds().count())};
}

std::int64_t from_calendar(const CalendarTime& time) {
    const std::chrono::year year(std::clamp(time.year, lowest_year, highest_year));
    const std::chrono::month month(static_cast<unsigned>(std::clamp(time.month, 1, 12)));
    const auto day =
        std::chrono::sys_days(year / month / 1) - first_day + std::chrono::days(std::clamp(time.day, 1, 31) - 1);
    const Ticks since_1601 =
        day + std::chrono::hours(std::clamp(time.hour, 0, 23)) + std::chrono::minutes(std::clamp(time.minute, 0, 59)) +
        std::chrono::seconds(std::clamp(time.second, 0, 59)) + milliseconds(std::clamp(time.millisecond, 0, 999));
    return since_1601.count();
}

CalendarTime now_local() { return to_calendar(utc_to_local(now_utc())); }

std::int64_t utc_to_local(std::int64_t utc) {
    const std::int64_t time = whole_ms(utc);
    return shift(time, local_offset_at(time).ticks);
}

std::int64_t local_to_utc(std::int64_t local) {
    constexpr std::int64_t ticks_per_day = 86'400 * ticks_per_second;
    const std::int64_t time = whole_ms(local);
    // The clock changes at most once in two days, so one of these two offsets holds.
    const LocalOffset before = local_offset_at(shift(time, -ticks_per_day));
    const LocalOffset after = local_offset_at(shift(time, ticks_per_day));
    const std::int64_t by_before = shift(time, -before.ticks);
    if (before == after) return by_before;
    const std::int64_t by_after = shift(time, -after.ticks);
    const bool before_holds = local_offset_at(by_before) == before;
    const bool after_holds = local_offset_at(by_after) == after;
    if (before_holds && after_holds) return after.is_summer ? by_before : by_after;  // the hour comes twice
    if (before_holds || after_holds) return before_holds ? by_before : by_after;
    return before.ticks > after.ticks ? by_before : by_after;  // the hour is left out: summer time has begun
}

}  // namespace platform

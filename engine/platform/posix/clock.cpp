#include "engine/platform/clock.h"

#include <ctime>
#include <limits>

#include "engine/platform/posix/file_time.h"

namespace platform {

namespace {

constexpr std::int64_t ticks_per_ms = 10'000;
constexpr std::int64_t ticks_per_day = 86'400 * ticks_per_second;

// What local time is ahead of universal time at one moment.
struct Offset {
    std::int64_t ticks = 0;
    bool summer = false;
    bool operator==(const Offset&) const = default;
};

Offset offset_at(std::int64_t utc) {
    const time_t seconds = from_file_time(utc).tv_sec;
    tm fields{};
    if (localtime_r(&seconds, &fields) == nullptr) return {};
    return {.ticks = fields.tm_gmtoff * ticks_per_second, .summer = fields.tm_isdst > 0};
}

// Times so near the end of 64 bits that the sum would wrap stay where they are.
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

std::int64_t now_utc() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return to_file_time(now);
}

CalendarTime now_local() { return to_calendar(utc_to_local(now_utc())); }

std::int64_t utc_to_local(std::int64_t utc) {
    const std::int64_t time = whole_ms(utc);
    return shift(time, offset_at(time).ticks);
}

std::int64_t local_to_utc(std::int64_t local) {
    const std::int64_t time = whole_ms(local);
    // The clock changes at most once in two days, so one of these two offsets holds.
    const Offset before = offset_at(shift(time, -ticks_per_day));
    const Offset after = offset_at(shift(time, ticks_per_day));
    const std::int64_t by_before = shift(time, -before.ticks);
    if (before == after) return by_before;
    const std::int64_t by_after = shift(time, -after.ticks);
    const bool before_holds = offset_at(by_before) == before;
    const bool after_holds = offset_at(by_after) == after;
    if (before_holds && after_holds) return after.summer ? by_before : by_after;  // the hour comes twice
    if (before_holds || after_holds) return before_holds ? by_before : by_after;
    return before.ticks > after.ticks ? by_before : by_after;  // the hour is left out: summer time has begun
}

std::uint64_t steady_ns() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::uint64_t>(to_ns(now));
}

}  // namespace platform

#include "engine/platform/clock.h"

#include <windows.h>

#include <limits>

namespace platform {

namespace {

constexpr std::int64_t ticks_per_ms = 10'000;
constexpr std::int64_t ticks_per_minute = 60 * 1000 * ticks_per_ms;
constexpr int first_system_year = 1601;  // what the system's calendar form can hold
constexpr int last_system_year = 30'827;

SYSTEMTIME to_system(const CalendarTime& time) {
    SYSTEMTIME out{};
    out.wYear = static_cast<WORD>(time.year);
    out.wMonth = static_cast<WORD>(time.month);
    out.wDay = static_cast<WORD>(time.day);
    out.wHour = static_cast<WORD>(time.hour);
    out.wMinute = static_cast<WORD>(time.minute);
    out.wSecond = static_cast<WORD>(time.second);
    out.wMilliseconds = static_cast<WORD>(time.millisecond);
    return out;
}

CalendarTime from_system(const SYSTEMTIME& time) {
    return {.year = time.wYear,
            .month = time.wMonth,
            .day = time.wDay,
            .hour = time.wHour,
            .minute = time.wMinute,
            .second = time.wSecond,
            .millisecond = time.wMilliseconds};
}

bool has_system_form(const CalendarTime& time) {
    return time.year >= first_system_year && time.year <= last_system_year;
}

// The rule of that year; the present one where the system keeps no other.
TIME_ZONE_INFORMATION zone_of(const CalendarTime& time) {
    TIME_ZONE_INFORMATION zone{};
    const auto year = static_cast<USHORT>(has_system_form(time) ? time.year : first_system_year);
    if (!GetTimeZoneInformationForYear(year, nullptr, &zone)) GetTimeZoneInformation(&zone);
    return zone;
}

// Times so near the end of 64 bits that the sum would wrap stay where they are.
std::int64_t shift(std::int64_t time, std::int64_t minutes) {
    constexpr std::int64_t lowest = std::numeric_limits<std::int64_t>::min();
    constexpr std::int64_t highest = std::numeric_limits<std::int64_t>::max();
    const std::int64_t by = minutes * ticks_per_minute;
    if (by > 0 ? time > highest - by : time < lowest - by) return time;
    return time + by;
}

std::int64_t whole_ms(std::int64_t time) {
    constexpr std::int64_t lowest = std::numeric_limits<std::int64_t>::min() + ticks_per_ms;
    if (time < lowest) return lowest;
    const std::int64_t remainder = time % ticks_per_ms;
    return time - (remainder < 0 ? remainder + ticks_per_ms : remainder);
}

}  // namespace

std::int64_t now_utc() {
    FILETIME now{};
    GetSystemTimePreciseAsFileTime(&now);
    return static_cast<std::int64_t>(std::uint64_t{now.dwHighDateTime} << 32 | now.dwLowDateTime);
}

CalendarTime now_local() {
    SYSTEMTIME now{};
    GetLocalTime(&now);
    return from_system(now);
}

std::int64_t utc_to_local(std::int64_t utc) {
    const std::int64_t time = whole_ms(utc);
    const CalendarTime calendar = to_calendar(time);
    const TIME_ZONE_INFORMATION zone = zone_of(calendar);
    const SYSTEMTIME universal = to_system(calendar);
    SYSTEMTIME local{};
    if (has_system_form(calendar) && SystemTimeToTzSpecificLocalTime(&zone, &universal, &local)) {
        return from_calendar(from_system(local));
    }
    return shift(time, -(zone.Bias + zone.StandardBias));
}

// TzSpecificLocalTimeToSystemTime takes an hour that comes twice as summer time on some versions; trying standard time
// first, and looking whether it leads back, gives one answer everywhere. An hour that is left out is summer time.
std::int64_t local_to_utc(std::int64_t local) {
    const std::int64_t time = whole_ms(local);
    const TIME_ZONE_INFORMATION zone = zone_of(to_calendar(time));
    const std::int64_t by_standard = shift(time, zone.Bias + zone.StandardBias);
    if (zone.DaylightDate.wMonth == 0 || utc_to_local(by_standard) == time) return by_standard;
    return shift(time, zone.Bias + zone.DaylightBias);
}

std::uint64_t steady_ns() {
    constexpr std::uint64_t ns_per_second = 1'000'000'000;
    LARGE_INTEGER frequency{};
    LARGE_INTEGER count{};
    QueryPerformanceFrequency(&frequency);
    QueryPerformanceCounter(&count);
    const auto per_second = static_cast<std::uint64_t>(frequency.QuadPart);
    const auto ticks = static_cast<std::uint64_t>(count.QuadPart);
    // In two steps, so that the product stays within 64 bits.
    return ticks / per_second * ns_per_second + ticks % per_second * ns_per_second / per_second;
}

}  // namespace platform

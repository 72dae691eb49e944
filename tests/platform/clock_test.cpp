#include "engine/platform/clock.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <ctime>
#include <limits>
#include <string>
#include <tuple>

#if !defined(_WIN32)
#include "engine/platform/posix/system.h"
#endif

namespace platform {

static auto fields(const CalendarTime& t) {
    return std::tuple(t.year, t.month, t.day, t.hour, t.minute, t.second, t.millisecond);
}

namespace {

constexpr std::int64_t ticks_per_day = 86'400'000 * ticks_per_ms;
constexpr std::int64_t lowest = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t highest = std::numeric_limits<std::int64_t>::max();

TEST(Calendar, AgreesWithKnownMoments) {
    const struct {
        const char* label;
        std::int64_t time;
        CalendarTime calendar;
    } rows[] = {
        {"the beginning", 0, {1601, 1, 1}},
        {"before it", -ticks_per_ms, {1600, 12, 31, 23, 59, 59, 999}},
        {"a century that is no leap year", 94'354'848'000'000'000, {1900, 1, 1}},
        {"a leap day", 125'963'012'967'890'000, {2000, 2, 29, 12, 34, 56, 789}},
        {"the last day of a leap year", 126'227'807'999'990'000, {2000, 12, 31, 23, 59, 59, 999}},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(fields(to_calendar(row.time)), fields(row.calendar)) << row.label;
        EXPECT_EQ(from_calendar(row.calendar), row.time) << row.label;
    }
    EXPECT_EQ(fields(to_calendar(-1)), fields(to_calendar(-ticks_per_ms))) << "whole milliseconds";
    EXPECT_EQ(fields(to_calendar(highest)), fields({30828, 9, 14, 2, 48, 5, 477}));
    EXPECT_EQ(fields(to_calendar(lowest)), fields({-27627, 4, 19, 21, 11, 54, 522}));
    EXPECT_EQ(from_calendar({2024, 2, 31}), from_calendar({2024, 3, 2})) << "a day that the month has not";
    EXPECT_EQ(from_calendar({2024, 99, 99, -1, 99, 99, 9999}), from_calendar({2024, 12, 31, 0, 59, 59, 999}));
}

TEST(LocalTime, AnswersForAnyTime) {
    for (const std::int64_t time : {lowest, lowest + 1, -ticks_per_day, std::int64_t{-1}, std::int64_t{0},
                                    from_calendar({.year = 30'827, .month = 12, .day = 31}), highest - 1, highest}) {
        SCOPED_TRACE(time);
        EXPECT_NEAR(static_cast<double>(utc_to_local(time)), static_cast<double>(time), 1.0 * ticks_per_day);
        EXPECT_NEAR(static_cast<double>(local_to_utc(time)), static_cast<double>(time), 1.0 * ticks_per_day);
    }
    EXPECT_EQ(utc_to_local(ticks_per_ms - 1), utc_to_local(0)) << "parts of a millisecond are cut";
}

#ifndef _WIN32  // where no variable sets the zone

void use_zone(const char* zone) {
    zone != nullptr ? ::setenv("TZ", zone, 1) : ::unsetenv("TZ");
    ::tzset();
}

TEST(LocalTime, FollowsTheRuleOfTheDate) {
    constexpr char central_europe[] =
        "CET-1CEST,M3.5.0,M10.5.0/3";  // with its rules, which needs no data of the system
    constexpr char new_york[] = "EST5EDT,M3.2.0,M11.1.0";
    const struct {
        const char* label;
        const char* zone;
        CalendarTime local;
        CalendarTime utc;
    } rows[] = {
        {"west of Greenwich, twice", new_york, {2024, 11, 3, 1, 30}, {2024, 11, 3, 6, 30}},
        {"west of Greenwich, left out", new_york, {2024, 3, 10, 2, 30}, {2024, 3, 10, 6, 30}},
        {"winter", central_europe, {2024, 1, 15, 12}, {2024, 1, 15, 11}},
        {"summer", central_europe, {2024, 7, 15, 12}, {2024, 7, 15, 10}},
        {"an hour that is left out is summer time", central_europe, {2024, 3, 31, 2, 30}, {2024, 3, 31, 0, 30}},
        {"the hour after it", central_europe, {2024, 3, 31, 3}, {2024, 3, 31, 1}},
        {"an hour that comes twice is standard time", central_europe, {2024, 10, 27, 2, 30}, {2024, 10, 27, 1, 30}},
    };
    const char* const before = std::getenv("TZ");
    const std::string kept = before != nullptr ? before : "";
    for (const auto& row : rows) {
        use_zone(row.zone);
        EXPECT_EQ(local_to_utc(from_calendar(row.local)), from_calendar(row.utc)) << row.label;
    }
    for (const int hour : {0, 1}) {  // both passes of the hour that comes twice
        EXPECT_EQ(utc_to_local(from_calendar({2024, 10, 27, hour, 30})), from_calendar({2024, 10, 27, 2, 30})) << hour;
    }
    use_zone(before != nullptr ? kept.c_str() : nullptr);
}

TEST(FileTime, EndsWhereADiskGoesOn) {
    // A disk in memory keeps any 64-bit count of seconds, whose ticks overflowed.
    const std::int64_t late = to_file_time({.tv_sec = std::numeric_limits<time_t>::max(), .tv_nsec = 0});
    const std::int64_t early = to_file_time({.tv_sec = std::numeric_limits<time_t>::min(), .tv_nsec = 0});
    EXPECT_GT(to_calendar(late).year, 20'000);
    EXPECT_LT(to_calendar(early).year, -20'000);
}

#endif

}  // namespace
}  // namespace platform

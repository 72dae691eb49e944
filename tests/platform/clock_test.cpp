#include "engine/platform/clock.h"

#include <gmock/gmock.h>

#include <ctime>
#include <limits>
#include <tuple>

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
        {"1970", 116'444'736'000'000'000, {1970, 1, 1}},
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

TEST(LocalTime, ComesBackToTheMillisecond) {
    // Noon of the first of each month for a hundred years: no clock is put back at noon.
    for (int month = 0; month < 100 * 12; ++month) {
        const CalendarTime noon{.year = 1950 + month / 12, .month = 1 + month % 12, .hour = 12, .millisecond = 345};
        SCOPED_TRACE(testing::Message() << noon.year << '-' << noon.month);
        const std::int64_t local = from_calendar(noon);
        const std::int64_t utc = local_to_utc(local);
        ASSERT_EQ(utc_to_local(utc), local);
        ASSERT_LE(std::abs(utc - local), ticks_per_day);
        ASSERT_EQ(utc_to_local(utc + ticks_per_ms - 1), local) << "parts of a millisecond are cut";
    }
}

TEST(LocalTime, AnswersForAnyTime) {
    for (const std::int64_t time : {lowest, lowest + 1, -ticks_per_day, std::int64_t{-1}, std::int64_t{0},
                                    from_calendar({.year = 30'827, .month = 12, .day = 31}), highest - 1, highest}) {
        SCOPED_TRACE(time);
        EXPECT_NEAR(static_cast<double>(utc_to_local(time)), static_cast<double>(time), 1.0 * ticks_per_day);
        EXPECT_NEAR(static_cast<double>(local_to_utc(time)), static_cast<double>(time), 1.0 * ticks_per_day);
    }
}

TEST(LocalTime, IsWhatTheClockOnTheWallShows) {
    const std::time_t now = std::time(nullptr);
    const std::tm& wall = *std::localtime(&now);
    const std::int64_t shown =
        from_calendar({wall.tm_year + 1900, wall.tm_mon + 1, wall.tm_mday, wall.tm_hour, wall.tm_min, wall.tm_sec});
    EXPECT_NEAR(static_cast<double>(from_calendar(now_local()) - shown), 0.0, 2000.0 * ticks_per_ms);
}

}  // namespace
}  // namespace platform

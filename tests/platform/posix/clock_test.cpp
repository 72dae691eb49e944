#include "engine/platform/clock.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <ctime>
#include <limits>
#include <string>

#include "engine/platform/posix/system.h"

namespace platform {
namespace {

/// The zone of the process for as long as it lives. The form with rules needs no data of the system.
class ZoneReplaced {
public:
    explicit ZoneReplaced(const char* zone) { set(zone); }
    ZoneReplaced(const ZoneReplaced&) = delete;
    ZoneReplaced& operator=(const ZoneReplaced&) = delete;
    ~ZoneReplaced() { set(before_.empty() ? nullptr : before_.c_str()); }

private:
    static void set(const char* zone) {
        zone != nullptr ? ::setenv("TZ", zone, 1) : ::unsetenv("TZ");
        ::tzset();
    }
    std::string before_ = std::getenv("TZ") != nullptr ? std::getenv("TZ") : "";
};

constexpr char central_europe[] = "CET-1CEST,M3.5.0,M10.5.0/3";
constexpr char new_york[] = "EST5EDT,M3.2.0,M11.1.0";

TEST(PosixLocalTime, FollowsTheRuleOfTheDate) {
    const struct {
        const char* label;
        const char* zone;
        CalendarTime local;
        CalendarTime utc;
    } rows[] = {
        {"winter", central_europe, {2024, 1, 15, 12}, {2024, 1, 15, 11}},
        {"summer", central_europe, {2024, 7, 15, 12}, {2024, 7, 15, 10}},
        {"an hour that is left out is summer time", central_europe, {2024, 3, 31, 2, 30}, {2024, 3, 31, 0, 30}},
        {"the hour after it", central_europe, {2024, 3, 31, 3}, {2024, 3, 31, 1}},
        {"an hour that comes twice is standard time", central_europe, {2024, 10, 27, 2, 30}, {2024, 10, 27, 1, 30}},
        {"west of Greenwich, twice", new_york, {2024, 11, 3, 1, 30}, {2024, 11, 3, 6, 30}},
        {"west of Greenwich, left out", new_york, {2024, 3, 10, 2, 30}, {2024, 3, 10, 6, 30}},
    };
    for (const auto& row : rows) {
        const ZoneReplaced zone(row.zone);
        EXPECT_EQ(local_to_utc(from_calendar(row.local)), from_calendar(row.utc)) << row.label;
    }
    const ZoneReplaced zone(central_europe);
    for (const int hour : {0, 1}) {  // both passes of the hour that comes twice
        EXPECT_EQ(utc_to_local(from_calendar({2024, 10, 27, hour, 30})), from_calendar({2024, 10, 27, 2, 30})) << hour;
    }
}

TEST(PosixFileTime, EndsWhereADiskGoesOn) {
    // A disk in memory keeps any 64-bit count of seconds, whose ticks overflowed.
    const std::int64_t late = to_file_time({.tv_sec = std::numeric_limits<time_t>::max(), .tv_nsec = 0});
    const std::int64_t early = to_file_time({.tv_sec = std::numeric_limits<time_t>::min(), .tv_nsec = 0});
    EXPECT_GT(to_calendar(late).year, 20'000);
    EXPECT_LT(to_calendar(early).year, -20'000);
}

}  // namespace
}  // namespace platform

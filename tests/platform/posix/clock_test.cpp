#include "engine/platform/clock.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <ctime>
#include <string>

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
        int utc_hour;
        int utc_day;
    } rows[] = {
        {"winter", central_europe, {.year = 2024, .month = 1, .day = 15, .hour = 12}, 11, 15},
        {"summer", central_europe, {.year = 2024, .month = 7, .day = 15, .hour = 12}, 10, 15},
        {"the hour before summer time", central_europe, {.year = 2024, .month = 3, .day = 31, .hour = 1}, 0, 31},
        {"an hour that is left out is summer time", central_europe, {2024, 3, 31, 2, 30}, 0, 31},
        {"the hour after it", central_europe, {.year = 2024, .month = 3, .day = 31, .hour = 3}, 1, 31},
        {"an hour that comes twice is standard time", central_europe, {2024, 10, 27, 2, 30}, 1, 27},
        {"the hour before that", central_europe, {.year = 2024, .month = 10, .day = 27, .hour = 1}, 23, 26},
        {"west of Greenwich, twice", new_york, {2024, 11, 3, 1, 30}, 6, 3},
        {"west of Greenwich, left out", new_york, {2024, 3, 10, 2, 30}, 6, 10},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.label);
        const ZoneReplaced zone(row.zone);
        const CalendarTime utc = to_calendar(local_to_utc(from_calendar(row.local)));
        EXPECT_EQ(utc.hour, row.utc_hour);
        EXPECT_EQ(utc.day, row.utc_day);
        EXPECT_EQ(utc.minute, row.local.minute);
    }
}

TEST(PosixLocalTime, TakesBothPassesOfARepeatedHourToOneWallTime) {
    const ZoneReplaced zone(central_europe);
    const std::int64_t first = from_calendar({2024, 10, 27, 0, 30});
    const std::int64_t second = from_calendar({2024, 10, 27, 1, 30});
    EXPECT_EQ(utc_to_local(first), from_calendar({2024, 10, 27, 2, 30}));
    EXPECT_EQ(utc_to_local(second), utc_to_local(first));
}

}  // namespace
}  // namespace platform

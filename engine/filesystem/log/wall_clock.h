#pragma once

namespace logging {

struct WallClock {
    int hour;
    int minute;
    int second;
    int millisecond;
};

/// The local time of day.
WallClock wall_clock();

}  // namespace logging

// Turning the clock into local time costs more than a whole log line; it is done once for each second.
#include "engine/filesystem/log/wall_clock.h"

#include <atomic>
#include <cstdint>

#include "engine/platform/clock.h"

namespace logging {

namespace {

constexpr std::int64_t ticks_per_second = 10'000'000;

// One word, so that its parts belong together: the second since 1601, above the local hour, minute and second (a byte
// each). 0: nothing yet.
constinit std::atomic<std::uint64_t> cached{0};

std::uint64_t convert(std::int64_t second) {
    const platform::CalendarTime local = platform::to_calendar(platform::utc_to_local(second * ticks_per_second));
    return static_cast<std::uint64_t>(second) << 24 | static_cast<std::uint64_t>(local.hour) << 16 |
           static_cast<std::uint64_t>(local.minute) << 8 | static_cast<std::uint64_t>(local.second);
}

}  // namespace

WallClock wall_clock() {
    const std::int64_t now = platform::now_utc();
    const std::int64_t second = now / ticks_per_second;
    std::uint64_t word = cached.load(std::memory_order_relaxed);
    if (word >> 24 != static_cast<std::uint64_t>(second)) {
        word = convert(second);
        cached.store(word, std::memory_order_relaxed);
    }
    return {.hour = static_cast<int>(word >> 16 & 0xFF),
            .minute = static_cast<int>(word >> 8 & 0xFF),
            .second = static_cast<int>(word & 0xFF),
            .millisecond = static_cast<int>(now % ticks_per_second / (ticks_per_second / 1000))};
}

}  // namespace logging

#include "local_times.h"

#include <ctime>

namespace {

constexpr std::int64_t ticks_a_second = 10'000'000;
constexpr std::int64_t seconds_from_1601_to_1970 = 11'644'473'600;

std::int64_t offset_at(std::int64_t seconds) {
    const auto as_universal = static_cast<std::time_t>(seconds);
    const std::tm* const known = std::gmtime(&as_universal);
    if (known == nullptr) return 0;
    std::tm fields = *known;
    fields.tm_isdst = -1;
    return std::mktime(&fields) - as_universal;
}

}  // namespace

std::int64_t LocalTimes::time_of(std::int64_t ticks) {
    const std::int64_t seconds = ticks / ticks_a_second - seconds_from_1601_to_1970;
    const auto [known, is_new] = offsets_.try_emplace(seconds / 900);
    if (is_new) known->second = offset_at(seconds);
    return (seconds + known->second) * 1'000'000'000 + ticks % ticks_a_second * 100;
}

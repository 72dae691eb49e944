#pragma once

#include <cstddef>

#include "engine/platform/clock.h"

namespace crash {

inline constexpr std::size_t stamp_capacity = 32;

/// "20260131_235959123". Uses no memory and no library, so that a crash handler may call it.
void write_stamp(char (&out)[stamp_capacity], const platform::CalendarTime& time);

}  // namespace crash

#pragma once

#include <string_view>

#include "engine/platform/clock.h"
#include "engine/platform/text.h"

// Names of log files and dumps. Nothing here takes memory or locks, so that a crash handler may call it.

namespace crash {

inline constexpr std::string_view log_folder = "out/logs/";

/// "crash_20260131_235959123" and the ending.
void add_stamped_name(platform::BoundedText& out, const platform::CalendarTime& time, std::string_view ending);

/// `name` with "_" and the number of this process before its ending: for a name that another process has taken.
void add_with_process(platform::BoundedText& out, std::string_view name);

}  // namespace crash

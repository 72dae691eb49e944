#pragma once

#include <cstdint>
#include <optional>
#include <string>

// File times as the library counts them: units of 100 ns since 1601-01-01, UTC.

std::int64_t time_now();

/// The time that a text names: "YYYY-MM-DD", "YYYY-MM-DD HH:MM:SS" (also with a "T") or "@SECONDS" since 1970.
std::optional<std::int64_t> parse_time(const std::string& text);

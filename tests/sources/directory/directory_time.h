#pragma once

#include <cstdint>
#include <string>

/// Sets when a directory's list of names changed: 100 ns since 1601, universal time.
void set_directory_time(const std::string& path, std::int64_t time);

#pragma once

#include <windows.h>

#include <cstdint>

namespace platform {

inline std::int64_t to_file_time(const FILETIME& time) {
    return static_cast<std::int64_t>(std::uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime);
}

inline FILETIME from_file_time(std::int64_t time) {
    return {.dwLowDateTime = static_cast<DWORD>(time),
            .dwHighDateTime = static_cast<DWORD>(static_cast<std::uint64_t>(time) >> 32)};
}

}  // namespace platform

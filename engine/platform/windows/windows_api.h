#pragma once

#include <windows.h>

/// The system's header takes these names away by macros. They are ours, so the system's values get other names.

namespace platform::windows_api {

inline constexpr DWORD open_existing = OPEN_EXISTING;
inline constexpr DWORD open_always = OPEN_ALWAYS;
inline constexpr DWORD create_always = CREATE_ALWAYS;
inline constexpr DWORD truncate_existing = TRUNCATE_EXISTING;

}  // namespace platform::windows_api

#undef OPEN_EXISTING
#undef OPEN_ALWAYS
#undef CREATE_ALWAYS
#undef TRUNCATE_EXISTING

#pragma once

#include <windows.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "engine/platform/clock.h"
#include "engine/platform/error.h"

// What every call of the system needs: its errors, handles, times and texts.

namespace platform {

/// Records the failure of the call that has just failed, and answers false.
bool fail_last();

inline HANDLE to_handle(std::intptr_t handle) { return reinterpret_cast<HANDLE>(handle); }

struct CloseAnyHandle {
    void operator()(HANDLE handle) const { CloseHandle(handle); }
};
/// An owned handle of the system, or null.
using Handle = std::unique_ptr<void, CloseAnyHandle>;
/// Takes what a call of the system has answered.
inline Handle own(HANDLE handle) { return Handle(handle == INVALID_HANDLE_VALUE ? nullptr : handle); }

/// The file of code that holds this address; null when none does.
inline HMODULE module_at(const void* address) {
    constexpr DWORD by_address = GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT;
    HMODULE module = nullptr;
    GetModuleHandleExW(by_address, static_cast<LPCWSTR>(address), &module);
    return module;
}

inline std::int64_t to_file_time(const FILETIME& time) {
    return static_cast<std::int64_t>(std::uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime);
}
inline FILETIME from_file_time(std::int64_t time) {
    return {.dwLowDateTime = static_cast<DWORD>(time), .dwHighDateTime = static_cast<DWORD>(time >> 32)};
}

// Narrow text of the library is UTF-8; the system's calls take UTF-16.

/// Writes `text` with a terminator and answers the number of units before it; 0 when there is none, it does not fit, or
/// is no text. A component between "/" that is not UTF-8 is taken in `code_page`, by default the system's.
std::size_t to_wide(std::string_view text, wchar_t* out, std::size_t capacity, unsigned code_page = 0);

/// The way back, in bytes; 0 also for half of a surrogate pair, which no UTF-8 can tell.
std::size_t to_narrow(std::wstring_view text, char* out, std::size_t capacity);

/// Text of any length for people, in which what cannot be converted is replaced by a mark. Throws std::bad_alloc.
std::wstring to_utf16(std::string_view text);
std::string to_utf8(std::wstring_view text);

}  // namespace platform

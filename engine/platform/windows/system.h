#pragma once

#include <windows.h>

#include <cstdint>
#include <memory>

#include "engine/platform/clock.h"
#include "engine/platform/error.h"

// What every call of the system needs: its errors, its handles and its times.

namespace platform {

/// The one place that says what a code of GetLastError means to callers.
Failure failure_of(std::uint32_t os_code);

/// Records the failure that a code means, and answers false.
bool fail_os(std::uint32_t os_code);
/// With the code of the call that has just failed.
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

}  // namespace platform

// What error codes mean, times, and text.
#include "engine/platform/windows/system.h"

#include <algorithm>

#include "engine/platform/text.h"

namespace platform {
namespace {

using enum Failure;

constexpr std::int32_t over_quota = 1295;  // of a user, which not every header names

/// ERROR_INVALID_NAME: nothing can have such a name. ERROR_DIRECTORY: a file where the path has a directory.
constexpr Meaning error_codes[] = {
    {NOT_FOUND,
     {ERROR_FILE_NOT_FOUND, ERROR_PATH_NOT_FOUND, ERROR_INVALID_DRIVE, ERROR_NOT_READY, ERROR_BAD_NETPATH,
      ERROR_BAD_NET_NAME, ERROR_INVALID_NAME, ERROR_BAD_PATHNAME, ERROR_DIRECTORY, ERROR_CANT_RESOLVE_FILENAME}},
    {ACCESS_DENIED, {ERROR_ACCESS_DENIED, ERROR_PRIVILEGE_NOT_HELD}},
    {IN_USE, {ERROR_SHARING_VIOLATION, ERROR_LOCK_VIOLATION, ERROR_BUSY, ERROR_DELETE_PENDING, ERROR_USER_MAPPED_FILE}},
    {ALREADY_EXISTS, {ERROR_FILE_EXISTS, ERROR_ALREADY_EXISTS}},
    {NOT_EMPTY, {ERROR_DIR_NOT_EMPTY}},
    {DISK_FULL, {ERROR_DISK_FULL, ERROR_HANDLE_DISK_FULL, ERROR_FILE_TOO_LARGE, over_quota}},
    {PATH_TOO_LONG, {ERROR_FILENAME_EXCED_RANGE, ERROR_BUFFER_OVERFLOW}},
    {READ_ONLY, {ERROR_WRITE_PROTECT}},
    {OUT_OF_MEMORY, {ERROR_NOT_ENOUGH_MEMORY, ERROR_OUTOFMEMORY, ERROR_NO_SYSTEM_RESOURCES, ERROR_COMMITMENT_LIMIT}},
    {TOO_MANY_FILES, {ERROR_TOO_MANY_OPEN_FILES}},
    {IO,
     {ERROR_CRC, ERROR_READ_FAULT, ERROR_WRITE_FAULT, ERROR_IO_DEVICE, ERROR_SECTOR_NOT_FOUND, ERROR_FILE_CORRUPT,
      ERROR_DISK_CORRUPT}},
    {INVALID_HANDLE, {ERROR_INVALID_HANDLE}},
    {ABORTED, {ERROR_OPERATION_ABORTED}},
};

// The system counts in 32 bits. What is longer is cut anyhow: no text of people is.
constexpr std::size_t largest_piece = 0x4000'0000;

std::size_t widen(UINT code_page, DWORD flags, std::string_view text, wchar_t* out, std::size_t capacity) {
    if (text.empty() || capacity == 0) return 0;  // without room the system answers what it would need
    const int written = MultiByteToWideChar(code_page, flags, text.data(), static_cast<int>(text.size()), out,
                                            static_cast<int>(capacity));
    return static_cast<std::size_t>(std::max(written, 0));
}

std::size_t narrow(DWORD flags, std::wstring_view text, char* out, std::size_t capacity) {
    if (text.empty() || capacity == 0) return 0;
    const int written = WideCharToMultiByte(CP_UTF8, flags, text.data(), static_cast<int>(text.size()), out,
                                            static_cast<int>(capacity), nullptr, nullptr);
    return static_cast<std::size_t>(std::max(written, 0));
}

}  // namespace

constinit const std::span<const Meaning> system_codes(error_codes);

bool fail_last() { return fail_os(static_cast<std::int32_t>(GetLastError())); }

std::int64_t now_utc() {
    FILETIME now{};
    GetSystemTimePreciseAsFileTime(&now);
    return to_file_time(now);
}

// By the rule of that year; by the present one where the system keeps no other.
LocalOffset local_offset_at(std::int64_t utc) {
    constexpr std::int64_t ticks_per_minute = 60 * ticks_per_second;
    constexpr WORD first_year = 1601;  // what the system's calendar form can hold
    const FILETIME time = from_file_time(utc);
    SYSTEMTIME universal{};
    const bool has_system_form = utc >= 0 && FileTimeToSystemTime(&time, &universal);
    TIME_ZONE_INFORMATION zone{};
    const WORD year = has_system_form ? universal.wYear : first_year;
    if (!GetTimeZoneInformationForYear(year, nullptr, &zone)) GetTimeZoneInformation(&zone);
    const std::int64_t standard = -ticks_per_minute * (zone.Bias + zone.StandardBias);
    SYSTEMTIME local{};
    FILETIME local_time{};
    if (!has_system_form || !SystemTimeToTzSpecificLocalTime(&zone, &universal, &local) ||
        !SystemTimeToFileTime(&local, &local_time)) {
        return {.ticks = standard};
    }
    const std::int64_t ticks = to_file_time(local_time) - utc;
    return {.ticks = ticks, .is_summer = ticks != standard};
}

std::size_t narrow_to_wide(const char* text, std::size_t length, wchar_t* out) {
    std::size_t written = 0;
    for (std::string_view rest(text, length); !rest.empty();) {
        const std::string_view piece = rest.substr(0, largest_piece);
        written += widen(CP_ACP, 0, piece, out + written, piece.size());
        rest.remove_prefix(piece.size());
    }
    return written;
}

std::size_t to_wide(std::string_view text, wchar_t* out, std::size_t capacity, unsigned code_page) {
    std::size_t length = widen(CP_UTF8, MB_ERR_INVALID_CHARS, text, out, capacity - 1);
    const bool mixed = length == 0;
    while (mixed && !text.empty()) {
        const std::string_view part = text.substr(0, std::max<std::size_t>(std::min(text.find('/'), text.size()), 1));
        const std::size_t room = capacity - 1 - length;
        std::size_t written = widen(CP_UTF8, MB_ERR_INVALID_CHARS, part, out + length, room);
        if (written == 0) written = widen(code_page, MB_ERR_INVALID_CHARS, part, out + length, room);
        if (written == 0) return 0;
        length += written;
        text.remove_prefix(part.size());
    }
    out[length] = L'\0';
    return length;
}

std::size_t to_narrow(std::wstring_view text, char* out, std::size_t capacity) {
    const std::size_t length = narrow(WC_ERR_INVALID_CHARS, text, out, capacity - 1);
    out[length] = '\0';
    return length;
}

std::wstring to_utf16(std::string_view text) {
    std::wstring wide(text.size(), L'\0');
    wide.resize(widen(CP_UTF8, 0, text, wide.data(), wide.size()));
    return wide;
}

std::string to_utf8(std::wstring_view text) {
    std::string bytes(text.size() * 3, '\0');
    bytes.resize(narrow(0, text, bytes.data(), bytes.size()));
    return bytes;
}

}  // namespace platform

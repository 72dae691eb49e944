#include "tests/sources/listing/age_directory.h"

#include <windows.h>

#include <gtest/gtest.h>

// The standard library opens no directory for this.
void age_directory(const std::string& path) {
    FILETIME time;
    GetSystemTimeAsFileTime(&time);
    ULARGE_INTEGER count;
    count.LowPart = time.dwLowDateTime;
    count.HighPart = time.dwHighDateTime;
    count.QuadPart -= 36'000'000'000u;
    time.dwLowDateTime = count.LowPart;
    time.dwHighDateTime = count.HighPart;
    HANDLE const directory = CreateFileA(path.c_str(), FILE_WRITE_ATTRIBUTES, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                         nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    EXPECT_NE(directory, INVALID_HANDLE_VALUE) << path;
    EXPECT_TRUE(SetFileTime(directory, nullptr, nullptr, &time)) << path;
    CloseHandle(directory);
}

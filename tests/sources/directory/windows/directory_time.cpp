#include "tests/sources/directory/directory_time.h"

#include <windows.h>

#include <gtest/gtest.h>

// The standard library opens no directory for this.
void set_directory_time(const std::string& path, std::int64_t time) {
    const HANDLE directory = CreateFileA(path.c_str(), FILE_WRITE_ATTRIBUTES, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                         nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    const FILETIME stamp{static_cast<DWORD>(time), static_cast<DWORD>(time >> 32)};
    EXPECT_TRUE(SetFileTime(directory, nullptr, nullptr, &stamp)) << path;
    CloseHandle(directory);
}

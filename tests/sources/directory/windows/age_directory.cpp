#include "tests/sources/directory/age_directory.h"

#include <windows.h>

#include <gtest/gtest.h>

namespace {

// The standard library opens no directory for this.
class Directory {
public:
    explicit Directory(const std::string& path)
        : handle_(CreateFileA(path.c_str(), FILE_READ_ATTRIBUTES | FILE_WRITE_ATTRIBUTES,
                              FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                              FILE_FLAG_BACKUP_SEMANTICS, nullptr)) {
        EXPECT_NE(handle_, INVALID_HANDLE_VALUE) << path;
    }
    Directory(const Directory&) = delete;
    Directory& operator=(const Directory&) = delete;
    ~Directory() { CloseHandle(handle_); }

    FILETIME time() const {
        FILETIME time{};
        EXPECT_TRUE(GetFileTime(handle_, nullptr, nullptr, &time));
        return time;
    }
    void set_time(const FILETIME& time) const { EXPECT_TRUE(SetFileTime(handle_, nullptr, nullptr, &time)); }

private:
    HANDLE handle_;
};

}  // namespace

void age_directory(const std::string& path) {
    FILETIME time;
    GetSystemTimeAsFileTime(&time);
    ULARGE_INTEGER count;
    count.LowPart = time.dwLowDateTime;
    count.HighPart = time.dwHighDateTime;
    count.QuadPart -= 36'000'000'000u;
    time.dwLowDateTime = count.LowPart;
    time.dwHighDateTime = count.HighPart;
    Directory(path).set_time(time);
}

void change_unseen(const std::string& path, const std::function<void()>& change) {
    const FILETIME time = Directory(path).time();
    change();
    Directory(path).set_time(time);
}

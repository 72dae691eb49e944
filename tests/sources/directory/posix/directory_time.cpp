#include "tests/sources/directory/directory_time.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <gtest/gtest.h>

void set_directory_time(const std::string& path, std::int64_t time) {
    const timespec stamp{.tv_sec = time / 10'000'000 - 11'644'473'600, .tv_nsec = time % 10'000'000 * 100};
    const timespec times[] = {stamp, stamp};
    EXPECT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0) << path;
}

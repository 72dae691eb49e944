#pragma once

#include <sys/stat.h>

#include <cstdint>

/// The table of this process's open files. POSIX lets everybody open, delete and rename what others hold open; callers
/// expect the rules of Windows, so the seam keeps them itself: readers share with readers, everything else is alone.

namespace platform {

struct FileKey {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;  // 0: no file
    bool operator==(const FileKey&) const = default;
};
inline FileKey key_of(const struct stat& status) { return FileKey{.device = status.st_dev, .inode = status.st_ino}; }

/// False when another holder excludes this one, or when memory is short.
bool acquire_share(const FileKey& key, bool exclusive);
void release_share(const FileKey& key, bool exclusive);

/// How many files this process has removed or replaced. An open that sees it move between finding a file and entering
/// it here must ask whether its file still has a name.
std::uint64_t removal_count();
void count_removal();

/// Holds a file alone while it is deleted, renamed or replaced. Anything but a regular file is not in the table and
/// always free.
class SoleHold {
public:
    SoleHold() = default;
    SoleHold(const SoleHold&) = delete;
    SoleHold& operator=(const SoleHold&) = delete;
    ~SoleHold() {
        if (key_.inode != 0) release_share(key_, true);
    }
    bool acquire(const struct stat& status) {
        if (!S_ISREG(status.st_mode)) return true;
        if (!acquire_share(platform::key_of(status), true)) return false;
        key_ = platform::key_of(status);
        return true;
    }

private:
    FileKey key_;
};

}  // namespace platform

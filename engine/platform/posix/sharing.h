#pragma once

#include <sys/stat.h>

#include <cstdint>

#include "engine/platform/files.h"

/// Who has which file open. POSIX lets everybody open, delete and rename what others hold open; callers expect the rules
/// of Windows: readers share with readers, everything else is alone. Within this process a table keeps them, for other
/// processes the locks of flock.

namespace platform {

inline FileId id_of(const struct stat& status) { return FileId{.device = status.st_dev, .inode = status.st_ino}; }

/// Enters a file into the table. False, with the failure recorded, when a holder excludes this use.
bool acquire_share(const FileId& id, bool exclusive);
void release_share(const FileId& id, bool exclusive);

/// Takes the lock against other processes. False, with the failure recorded, when one of them excludes this use; file
/// systems without locks exclude nobody.
bool lock_file(int descriptor, bool exclusive);
/// To be called before a descriptor is closed that lock_file locked while fork_count() was `forks`. The lock belongs to
/// the open file, which a forked child has too: closing ends it only when both have closed. So whoever took the lock
/// gives it up at once, and a child never ends the lock of its parent.
void unlock_file(int descriptor, bool exclusive, std::uint32_t forks);
/// How many forks lie between the start of the program and this process.
std::uint32_t fork_count();

/// How many names this process has taken from their files. An open that sees it move between finding a file and entering
/// it here must ask whether the file still has its name.
std::uint64_t removal_count();
void count_removal();

}  // namespace platform

#pragma once

#include <sys/stat.h>

#include "engine/platform/posix/spelling/spelling.h"

namespace platform {

/// A name in a directory: what it is by itself (a link is not followed) and how the disk spells it.
struct Entry {
    char path[path_buffer_size];
    struct stat status;

    bool is_link() const { return S_ISLNK(status.st_mode); }
    bool is_regular() const { return S_ISREG(status.st_mode); }
    bool is_directory() const { return S_ISDIR(status.st_mode); }
    bool is_read_only() const { return is_regular() && (status.st_mode & S_IWUSR) == 0; }
};

/// Finds the entry at `path`, under any spelling, trailing slashes ignored. Records the failure.
bool find_entry(const char* path, Entry& out);
/// The same for a path that copy_path and spell_path have been through.
bool look_at_entry(Entry& entry);

}  // namespace platform

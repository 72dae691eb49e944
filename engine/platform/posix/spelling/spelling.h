#pragma once

#include <fcntl.h>

#include <cstddef>

#include "engine/platform/files.h"
#include "engine/platform/posix/spelling/folded_directory.h"
#include "engine/platform/posix/system_error.h"

/// Finding what a path means on a disk that knows case, for callers who do not.

namespace platform {

enum class Spelling : std::uint8_t {
    EXISTS,   // every component is held under some spelling
    NEW,      // all but the last are
    MISSING,  // the directory it lies in is not there
};

/// Gives each component of `path` the spelling that the disk holds, as far as there is one. Folding ASCII letters keeps
/// the length, so it is done in place. No trailing slash. `directory`, where given, receives the stamp of the directory
/// that the last name was looked for in.
Spelling spell_path(char* path, DirectoryStamp* directory = nullptr);

/// Copies a caller's path without its trailing slashes. False, with the failure recorded, when it is empty or too long.
bool copy_path(const char* path, char (&out)[path_buffer_size]);
/// The same check alone.
bool check_path(const char* path);

/// The last component of a path without trailing slashes.
const char* last_component(const char* path);

/// The directory that holds a path's last name.
struct DirectoryPath {
    char text[path_buffer_size] = ".";
    explicit DirectoryPath(const char* path);
};

/// Makes a system call on a path: as given, then as the disk spells it. `call(directory, text)` answers as system calls
/// do; so does this.
template <class Call>
auto call_at(const PathAt& path, Call call) -> decltype(call(0, "")) {
    if (path.root != nullptr && path.root->valid() && path.relative != nullptr) {
        const char* const relative = *path.relative != '\0' ? path.relative : ".";
        const auto result = retry_interrupted([&] { return call(static_cast<int>(path.root->native()), relative); });
        if (result >= 0 || errno != ENOENT) return result;
    }
    const auto result = retry_interrupted([&] { return call(AT_FDCWD, path.full); });
    if (result >= 0 || errno != ENOENT) return result;
    char spelled[path_buffer_size];
    if (!copy_path(path.full, spelled) || spell_path(spelled) != Spelling::EXISTS) {
        errno = ENOENT;
        return result;
    }
    return retry_interrupted([&] { return call(AT_FDCWD, static_cast<const char*>(spelled)); });
}

}  // namespace platform

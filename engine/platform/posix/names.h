#pragma once

#include <fcntl.h>
#include <sys/stat.h>

#include <cstddef>
#include <mutex>

#include "engine/platform/files.h"
#include "engine/platform/posix/system.h"
#include "engine/platform/threads.h"

/// What a path means on a disk that knows case, for callers who do not. A path is tried as given; when that spelling is
/// not there, each component is looked for without regard to the case of ASCII letters: an exact spelling wins, then the
/// lower-case one, then the smallest by bytes. What is created keeps the caller's case and reuses what is there.

namespace platform {

enum class Spelling : std::uint8_t {
    EXISTS,   // every component is held under some spelling
    NEW,      // all but the last are
    MISSING,  // the directory it lies in is not there
    UNKNOWN,  // a directory on the way could not be read; errno says why
};

/// Which state of a directory's list of names somebody looked at. The change time is taken and not the modification
/// time, since nobody can set it back.
struct DirectoryStamp {
    FileId id;  // inode 0: not looked yet
    std::int64_t changed_ns = 0;
    bool is_trusted = false;  // any later change gives another stamp
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

/// The first `length` bytes of a path as the path of a directory; without a length, the directory of its last name.
struct DirectoryPath {
    char text[path_buffer_size] = ".";
    DirectoryPath(const char* path, std::size_t length);
    explicit DirectoryPath(const char* path);
};

/// The disk's spelling of a path that does not exist as given: false, with errno set, unless all of it exists.
bool find_other_spelling(const char* path, char (&out)[path_buffer_size]);

/// Makes a system call on a path: as given, then as the disk spells it. `call(directory, text)` answers as system calls
/// do; so does this. ENOENT means that the disk holds no spelling of the path, and nothing else.
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
    if (!find_other_spelling(path.full, spelled)) return result;
    return retry_interrupted([&] { return call(AT_FDCWD, static_cast<const char*>(spelled)); });
}

/// fstatat made so: what the path leads to.
inline int stat_at(const PathAt& path, struct stat& status) {
    return call_at(path, [&](int directory, const char* text) { return ::fstatat(directory, text, &status, 0); });
}

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

/// The moment in which a new name enters a directory. One at a time in the process: two threads that create "Name" and
/// "name" would otherwise both find neither, and make two files where callers know one.
class Creation {
public:
    /// Waits for its turn and looks the path up.
    explicit Creation(const char* path);

    /// NEW: the directory is there and holds no spelling of the name.
    Spelling spelling() const { return spelling_; }
    /// Whether the path is NEW and a name that Windows, too, could hold. Records the failure.
    bool check_new() const;
    /// The path as the disk spells it; a new name in the caller's case.
    const char* path() const { return path_; }
    /// To be called once the name is there, moved there from `old_path` where it is not new. Answers true.
    bool done(const char* old_path = nullptr) const;

private:
    bool look_up(const char* path);

    const std::lock_guard<Mutex> turn_;
    char path_[path_buffer_size] = "";
    DirectoryStamp directory_;
    Spelling spelling_ = Spelling::UNKNOWN;
    int os_code_ = 0;  // why it is UNKNOWN
};

}  // namespace platform

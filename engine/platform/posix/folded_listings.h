#pragma once

#include <cstdint>
#include <string_view>

#include "engine/platform/directories.h"

/// The names of directories, found without regard to ASCII case. Listings are kept, since a name that the disk does not
/// hold is asked for again and again. A failure is never kept: it tells nothing about the next question.

namespace platform {

/// Which state of a directory's list of names somebody looked at. The change time is taken and not the modification
/// time, since nobody can set it back.
struct DirectoryStamp {
    FileId id;  // inode 0: not looked yet
    std::int64_t changed_ns = 0;
    bool is_trusted = false;  // any later change gives another stamp
};

/// Looks at the directory at `path`, links followed. False with errno set when it is none or cannot be looked at.
bool stamp_directory(const char* path, DirectoryStamp& out);

enum class Held : std::uint8_t {
    YES,
    NO,
    UNKNOWN,  // the directory could not be read, or there was no memory for its names; errno says which
};

/// Looks for `name` in the directory at `path` and gives it the spelling that is held there: the exact one, else the
/// one without upper-case letters, else the smallest by bytes. `stamp` may hold what was just seen of the directory, and
/// receives the stamp that the answer belongs to. May throw std::bad_alloc.
Held find_spelling(const char* path, DirectoryStamp& stamp, char* name, std::size_t length);

/// This process has just added `name` to the directory at `path`, whose stamp was `before`: what is kept of it stays
/// good. Without this, each of many files that are created one after another would have the directory read anew.
void note_created(const char* path, const DirectoryStamp& before, std::string_view name);
/// What is kept of this directory has turned out wrong.
void forget_directory(const DirectoryStamp& stamp);

}  // namespace platform

#pragma once

#include <string_view>

#include <engine/filesystem/contract/path.h>

namespace fs {

/// A caller's path as sources are asked for it, in lower case, or as they create it, with the caller's case. Throws
/// std::bad_alloc where fs::path would be empty for want of memory.
fs::path lookup_name(const char* path);
fs::path creation_name(const char* path);
/// The same of a directory and a file name that are in normal form already, and of a directory alone.
fs::path path_of(std::string_view directory, const char* file, bool lower);
inline fs::path directory_name(std::string_view directory, bool lower) { return path_of(directory, "", lower); }
/// A copy in lower case.
fs::path lower_case(const fs::path& name);
/// Directory and file name in one text.
fs::string full_name(const fs::path& name);

/// Whether a file of this name could be made below a source on every system: it has a name, does not lead above the
/// source, and each part of it is one that Windows could hold.
bool is_creatable_name(const fs::path& name);

}  // namespace fs

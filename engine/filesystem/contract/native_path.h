#pragma once

#include <cstddef>
#include <string_view>

namespace fs {

// Paths of the disk in normal form: where they begin, which of them could be made, and the making of directories.

/// Whether paths may begin with a drive.
#if defined(_WIN32)
inline constexpr bool knows_drives = true;
#else
inline constexpr bool knows_drives = false;
#endif

/// Whether a prefix that ends in ":" stands before the first "/".
bool begins_with_drive(std::string_view path);

/// Whether a directory part begins at the disk and not at a source.
inline bool is_native_directory_name(std::string_view directory) {
    return directory.starts_with('/') || (knows_drives && begins_with_drive(directory));
}

/// What stands before the last component of a path that ends in "/"; "" when nothing does.
inline std::string_view parent_directory(std::string_view path) {
    return path.empty() ? path : path.substr(0, path.substr(0, path.size() - 1).rfind('/') + 1);
}

/// What stands before the first component that could be made: a drive, a network server or the leading "/".
std::size_t fixed_prefix_length(std::string_view path);

/// Whether a component is ".." (normalising has left only those that lead out).
bool climbs(std::string_view path);

/// Whether there is something to make and every component is a name that every system can hold.
bool is_creatable(std::string_view path);

/// Whether the disk has a directory of this path.
bool is_native_directory(const char* path);

/// Makes every directory of `path` that is missing (the text after its last "/" is none). False, with the failure
/// stored, when the disk refuses one. Something that is there already is no failure, whatever it is.
bool create_directories(std::string_view path);

}  // namespace fs

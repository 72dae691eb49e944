#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include <engine/filesystem/contract/path.h>

#include "engine/kernel/text.h"

// Paths inside the library: their normal form, names as sources are asked for them, and paths of the disk.

namespace fs {

/// A caller's text; null is the empty one.
inline std::string_view view_of(const char* text) { return text != nullptr ? text : ""; }

/// What normalising a path found out on its way.
struct Normalized {
    std::size_t length = 0;
    std::size_t split = 0;   // just past the last "/", 0 when there is none
    bool has_colon = false;  // a part of it, taken alone, may normalise to something else
};

/// fs::path_normalize with its by-products, of a text that is terminated. `out` may be `in`.
Normalized normalize(char* out, std::string_view in, bool keep_case);

/// A path in normal form. Null is the empty path. Throws std::bad_alloc.
class NormalText {
public:
    NormalText(const char* path, bool keep_case) : text_(view_of(path)) {
        text_.resize(normalize(text_.data(), text_, keep_case).length);
    }

    const char* c_str() const { return text_.c_str(); }
    std::string_view view() const { return text_; }
    bool empty() const { return text_.empty(); }
    void drop_trailing_slash() {
        if (view().ends_with('/')) text_.pop_back();
    }
    /// Whether it names nothing below a source: empty, or separators alone.
    bool names_nothing() const { return view().find_first_not_of('/') == std::string_view::npos; }

private:
    std::string text_;
};

/// ASCII letters in lower case; other bytes stay.
using kernel::fold;
void fold_text(char* text, std::size_t length);
std::string lower_text(std::string_view text);

inline bool is_separator(char letter) { return letter == '/' || letter == '\\'; }

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

// Paths of the disk in normal form: where they begin, which of them could be made, and the making of directories.

/// Whether paths may begin with a drive.
#if defined(_WIN32)
inline constexpr bool knows_drives = true;
#else
inline constexpr bool knows_drives = false;
#endif

/// Whether a directory part begins at the disk and not at a source: with "/" or with a drive.
inline bool is_native_directory_name(std::string_view directory) {
    if (directory.starts_with('/')) return true;
    const std::size_t colon = knows_drives ? directory.find(':') : std::string_view::npos;
    return colon != 0 && colon < directory.find('/');
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

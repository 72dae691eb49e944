#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "engine/platform/files.h"

namespace fs {

/// The native root of a directory source as the disk spells it, and kept open.
struct NativeRoot {
    char text[platform::path_buffer_size] = "";  // ends in "/" unless empty
    std::size_t length = 0;
    std::shared_ptr<const platform::Root> handle;  // shared with opens on their way

    std::string_view view() const { return {text, length}; }
};

/// Opens the root of a directory source. `given` is its path; `spelling` is used instead where it is the same path in
/// another case. With `parent` the last component, if it has a parent, becomes `start`, the relative directory in which
/// every name lies, and the root is what stands before it. False, with the error set, when the path is too long or the disk
/// cannot tell its spelling.
[[nodiscard]] bool open_native_root(std::string_view given, std::string_view spelling, bool parent, NativeRoot& root,
                                    std::string& start);

/// How a directory lies to a native root.
enum class Place : std::uint8_t {
    RELATIVE,  // counted from the root, and perhaps only the end of a directory below it
    INSIDE,    // a full path into the root
    OUTSIDE,   // a full path elsewhere
};
/// The place of `dir`; where it is INSIDE, `dir` is cut to what follows the root.
Place place_of(const NativeRoot& root, std::string_view& dir);

/// A native path, and how much of it is the root.
struct NativePath {
    char text[platform::path_buffer_size];
    std::size_t length = 0;
    std::size_t root_length = 0;

    std::string_view view() const { return {text, length}; }
    std::string_view below_root() const { return view().substr(root_length); }
    platform::PathAt at(const NativeRoot& root) const { return at(root.handle.get()); }
    platform::PathAt at(const platform::Root* root) const {
        if (root_length == 0 || root_length == length || root == nullptr || !root->valid()) return {.full = text};
        return {.full = text, .root = root, .relative = text + root_length};
    }
    /// Appends a text. False, with nothing changed, when it does not fit.
    [[nodiscard]] bool append(std::string_view added);
    void cut(std::size_t new_length) { text[length = new_length] = '\0'; }
};

/// Root, directory below it and name put together. False when they do not fit.
[[nodiscard]] bool build_native_path(const NativeRoot& root, std::string_view dir, std::string_view name,
                                     NativePath& out);

/// What stands before the first component that could be made: a drive, a network server or the leading "/".
std::size_t fixed_prefix_length(std::string_view path);
/// Whether a component is ".." (normalising has left only those that lead out).
bool climbs(std::string_view path);
/// Whether there is something to create and every component is a name that both systems can hold.
bool is_creatable(std::string_view path);

/// Makes every directory of `path` that is missing (the text after its last "/" is none). False, with the error set,
/// when the disk refuses one.
bool create_directories(const char* path);

}  // namespace fs

#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include <engine/filesystem/contract/flags.h>
#include <engine/filesystem/contract/source.h>

#include "engine/platform/files.h"

namespace fs {

/// The native root of a directory source as the disk spells it, and kept open.
struct NativeRoot {
    std::string text;                              // ends in "/" unless empty
    std::shared_ptr<const platform::Root> handle;  // shared with opens on their way
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

/// A native path of which so much is the root.
inline platform::PathAt path_at(const char* path, std::size_t root_length, const platform::Root* root) {
    if (root_length == 0 || path[root_length] == '\0' || root == nullptr || !root->valid()) return {.full = path};
    return {.full = path, .root = root, .relative = path + root_length};
}

/// A native path, and how much of it is the root.
struct NativePath {
    NativePath() { text[0] = '\0'; }

    char text[platform::path_buffer_size];
    std::size_t length = 0;
    std::size_t root_length = 0;

    std::string_view view() const { return {text, length}; }
    std::string_view below_root() const { return view().substr(root_length); }
    platform::PathAt at(const NativeRoot& root) const { return path_at(text, root_length, root.handle.get()); }
    /// Appends a text. False, with nothing changed, when it does not fit.
    [[nodiscard]] bool append(std::string_view added);
    void cut(std::size_t new_length) { text[length = new_length] = '\0'; }
};

/// Root, directory below it and name put together. False when they do not fit.
[[nodiscard]] bool build_native_path(const NativeRoot& root, std::string_view dir, std::string_view name,
                                     NativePath& out);

/// Opens what a source holds at `path`, as fs::open_native does but without asking the sources once more. An append or
/// read-write open makes a file that is missing. Null, with the failure stored, when that cannot be done.
SFsFile* open_of_source(CFSSource* source, const platform::PathAt& path, EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags,
                        std::string_view name);

/// Makes the directories of `to`. False, with the failure stored, when that fails or there is a file of the new name that
/// is not the old one in another case. May throw std::bad_alloc.
bool prepare_rename(std::string_view from, const char* to);

}  // namespace fs

#pragma once

#include <engine/filesystem/contract/path.h>

namespace fs {

/// The path of a source as the registry knows it: one trailing separator dropped, in normal form, lower case. A path
/// that is given longer than a native path can be is "".
class PreparedPath {
public:
    explicit PreparedPath(const char* path);

    const char* c_str() const { return text_; }
    bool is_full() const { return is_full_path(text_); }
    bool is_empty() const { return text_[0] == '\0'; }
    /// Whether the text, or the "/" that was to follow it, was longer than a native path can be.
    bool is_too_long() const { return is_too_long_; }
    /// Appends "/" where it fits.
    void append_slash();
    /// Whether the name ends in ".pak" or ".mpak".
    bool names_pack() const;
    /// Directory and file name for a pack; all of it a directory otherwise.
    fs::path as_source_path() const;

private:
    char text_[path_capacity];
    bool is_too_long_ = false;
};

}  // namespace fs

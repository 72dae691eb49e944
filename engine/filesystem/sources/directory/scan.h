#pragma once

#include <set>
#include <string>
#include <string_view>

#include "engine/filesystem/sources/directory/state.h"

namespace fs {

class dir_listing;

/// Who goes along with a scan. Directories are told as the disk spells them.
class ScanGuide {
public:
    /// Whether the scan is to list this directory, to which it has come through a link with `is_link`.
    virtual bool enters(std::string_view dir, bool is_link) = 0;
    /// Told of what goes to `unlisted`.
    virtual void cannot_list(std::string_view dir, const platform::Error& error) = 0;

protected:
    ~ScanGuide() = default;
};

/// Reads the directory `dir` (as the disk spells it), and those below it when `recursive`, into `to`, under the given node
/// of its tree. Records into `listing` and asks `guide` unless they are null; a guided scan lists nothing ahead. May throw
/// std::bad_alloc.
///
/// A directory that cannot be listed goes to `unlisted`; what was read of it before the failure is entered. One that is
/// not there contributes nothing. A link is followed unless it leads to a directory on its own way; one that is reached
/// through another link, moreover, only where no link has led so far: so directories that link to each other give each
/// name a bounded number of times, and what two links share is found through both.
void scan_directory(const DirectoryState& state, MountedNames& to, std::string_view dir, fs::dir& node, bool recursive,
                    dir_listing* listing, ScanGuide* guide = nullptr);

/// Whether `dir` is one of `dirs` or lies below one.
bool is_below_any(const std::set<std::string, std::less<>>& dirs, std::string_view dir);

}  // namespace fs

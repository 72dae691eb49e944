#pragma once

#include <string_view>

#include "engine/filesystem/sources/directory/mount/state.h"

namespace fs {

class dir_listing;

/// Reads the directory `dir` (as the disk spells it), and those below it when `recursive`, into `to`, under the given node
/// of its tree. Records into `listing` unless it is null. May throw std::bad_alloc.
///
/// A directory that cannot be listed goes to `unlisted`; what was read of it before the failure is entered. One that is
/// not there contributes nothing. A link is followed unless it leads to a directory on its own way; one that is reached
/// through another link, moreover, only where no link has led so far: so directories that link to each other give each
/// name a bounded number of times, and what two links share is found through both.
void scan_directory(const DirectoryState& state, MountedNames& to, std::string_view dir, fs::dir& node, bool recursive,
                    dir_listing* listing);

/// Takes over what `before` held in the directories that `to` could not list, and below them; they come last in the order
/// of lookups. May throw std::bad_alloc.
void keep_unlisted(const DirectoryState& state, MountedNames& before, MountedNames& to);

}  // namespace fs

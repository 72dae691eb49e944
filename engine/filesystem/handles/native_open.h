#pragma once

#include <string_view>

#include <engine/filesystem/handles.h>

#include "engine/platform/files.h"

namespace fs {

/// How a file is opened in this mode.
platform::OpenOptions native_options(EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags);

/// fs::open_native for a source that holds its root directory open; `name` becomes the handle's name ("" leaves it
/// unset). `path.full` is what the monitor and the log are told.
SFsFile* open_native_at(CFSSource* source, const platform::PathAt& path, EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags,
                        std::string_view name);

/// An append, or a read-write open, of a file that a source serves: made when it is missing, cut with CREATE and
/// READ_WRITE, and positioned at its end for APPEND. Tells the monitor. The caller has asked is_valid_open.
SFsFile* open_for_change(CFSSource* source, const platform::PathAt& path, EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags,
                         std::string_view name);

/// A file that a source makes, or makes anew, to be read and written. Tells the monitor, of `flags` as they are.
SFsFile* create_for_change(CFSSource* source, const platform::PathAt& path, FFSOpenFlags::FLAGS flags,
                           std::string_view name);

}  // namespace fs

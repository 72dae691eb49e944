#pragma once

#include <string_view>

#include <engine/filesystem/handles.h>

#include "engine/platform/files.h"

namespace fs {

/// fs::open_native for a source that holds its root directory open; `name` becomes the handle's name ("" leaves it
/// unset). `path.full` is what the monitor and the log are told.
SFsFile* open_native_at(CFSSource* source, const platform::PathAt& path, EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags,
                        std::string_view name);

/// A plain native handle with these options. Tells the monitor nothing. Null, with the error set, on failure.
SFsFile* open_handle(CFSSource* source, const platform::PathAt& path, const platform::OpenOptions& options,
                     std::string_view name);

/// Any of these takes an append or read-write open out of question.
inline constexpr FFSOpenFlags::FLAGS gzip_write_flags =
    FFSOpenFlags::GZIP_LEVEL1 | FFSOpenFlags::GZIP_LEVEL5 | FFSOpenFlags::GZIP_LEVEL9;

/// Whether mode and flags go together at all.
bool is_valid_open(EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags);

}  // namespace fs

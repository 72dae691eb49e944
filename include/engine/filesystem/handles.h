#pragma once

// Open files over native files, and the queue that serves their asynchronous reads.

#include <cstdint>
#include <memory>

#include <engine/filesystem/api.h>
#include <engine/filesystem/contract/file.h>

namespace fs {

/// Opens a native file directly, without asking any source.
///
/// Path     native, at most 259 bytes; with FFSOpenFlags::THROUGH_VFS (READ) it goes to fs::open instead, unless a
///          source asks for it while fs::open asks that source.
/// Returns  by mode and flags a gzip, an asynchronous or a plain handle; null on failure.
/// Owns     the caller closes it. `source` (may be null) is only noted in the handle.
/// Monitor  told after each successful open.
ENGINE_FS_API SFsFile* open_native(CFSSource* source, const char* path, EFSMode::TYPE mode,
                                   FFSOpenFlags::FLAGS flags = FFSOpenFlags::NONE);

}  // namespace fs

#pragma once

// Open files over native files, and the queue that serves their asynchronous reads.

#include <cstdint>
#include <memory>

#include <engine/filesystem/api.h>
#include <engine/filesystem/contract/file.h>

namespace fs {

/// Opens a native file directly, without asking any source.
///
/// The handle, its name and its request exist before the file is opened, and what the open empties it empties last: an
/// open that fails leaves the file as it was.
///
/// Path     native, at most 259 bytes, never matched by its end; with FFSOpenFlags::THROUGH_VFS (READ) it goes to
///          fs::open instead, unless a source asks for it while fs::open asks that source.
/// Modes    APPEND and READ_WRITE (without CREATE) open what exists, APPEND at its end; they go with no gzip-write flag.
///          WRITE with a gzip level creates. The length of an asynchronous file is asked for once, at opening.
/// Returns  by mode and flags a gzip, an asynchronous or a plain handle; null on failure, with the reason in
///          fs::last_error.
/// Owns     the caller closes it with fs::close. `source` (may be null) is only noted in the handle.
/// Threads  any thread; the handle is for one thread at a time, but for read_async and cancel_async of different requests.
/// Monitor  told after each successful open.
ENGINE_FS_API SFsFile* open_native(CFSSource* source, const char* path, EFSMode::TYPE mode,
                                   FFSOpenFlags::FLAGS flags = FFSOpenFlags::NONE);

}  // namespace fs

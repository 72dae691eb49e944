#pragma once

// Starting and stopping the file system, and mounting by path: the only room that knows every kind of source.

#include <cstddef>

#include <engine/filesystem/api.h>
#include <engine/filesystem/contract/flags.h>
#include <engine/filesystem/startup/crash.h>

namespace fs {

/// Starts the file system on a root directory.
///
/// root         full path of the directory that is asked first and written to.
/// flags        how it is mounted.
/// cache_dir    what FFSOpenFlags::IN_CACHE_DIR is relative to; may be "" or null.
/// use_fallback whether names that no source holds are served straight from the disk.
/// use_cache    accepted and not used.
/// names        null-terminated list of the only files that the root shows, or null for all of them.
/// Returns      false when the path is not full (with a message); a root that cannot be mounted ends the process.
/// Threads      call it once, before any other thread uses the file system; a second call adds a second root.
ENGINE_FS_API bool init(const char* root, FFSAddSourceFlags::ENUM flags, const char* cache_dir, bool use_fallback,
                        bool use_cache, const char** names);

/// The same with a name for each, and the ones that most hosts want.
struct init_options {
    const char* root = "";
    const char* cache_dir = "";
    FFSAddSourceFlags::ENUM flags = FFSAddSourceFlags::RECURSIVE | FFSAddSourceFlags::INDEX_NAMES;
    bool use_fallback = true;
    const char** names = nullptr;
};
ENGINE_FS_API bool init(const init_options& options);

/// Stops the read queue, destroys every source and empties the index. Nothing happens when it was not started.
ENGINE_FS_API void shutdown();

/// Where, below the cache directory, listings of directories are recorded for later mounts. The host makes this directory
/// to switch recording on; there is none without it.
#if defined(_WIN32)
inline constexpr char listing_cache_folder[] = "filesystem/windows_x64";
#else
inline constexpr char listing_cache_folder[] = "filesystem/linux_x64";
#endif

/// Mounts a pack (".pak", ".mpak") or else a directory, and registers it.
///
/// Returns  false when the path is not full, is registered already, or cannot be mounted (see fs::last_error).
/// Threads  any; mounting runs outside the registry lock.
ENGINE_FS_API bool add_source(const char* path, FFSAddSourceFlags::ENUM flags = FFSAddSourceFlags::NONE);
/// The same, with every name of the source below `prefix`: "mods/cool" shows its "a.txt" as "mods/cool/a.txt". What is created
/// there begins with the prefix. An empty prefix mounts as add_source does; false also for one that is a full path or
/// climbs.
ENGINE_FS_API bool add_source_at(const char* path, const char* prefix,
                                 FFSAddSourceFlags::ENUM flags = FFSAddSourceFlags::NONE);
/// Removes and destroys the source that was registered from `path`, at whatever prefix. Its open files must be closed first.
ENGINE_FS_API bool rem_source(const char* path);

}  // namespace fs

#pragma once

#include <cstdint>

#include <engine/filesystem/api.h>
#include <engine/filesystem/contract/file.h>
#include <engine/kernel/ztl.h>

namespace fs {

/// Opens a file by its virtual name.
///
/// READ     the first source, in asking order, that can open the name.
/// others   the first writable source that opens it in place; a protected source that holds the name ends the open, and
///          so does one that holds it and fails, since reading would go on finding it there. What nobody holds is created
///          (APPEND too: an empty file) by the newest source that was added with WRITE_HERE, else by the first of the
///          list (behind those with BEFORE_PACKS), or in its place for a full path; a source that is not writable fails
///          with READ_ONLY, and the next is not tried. So with packs at the head of the list and no WRITE_HERE nothing
///          can be created, and a name that a source before it holds is refused with ALREADY_EXISTS. Creation never
///          empties a file that APPEND or READ_WRITE is for.
/// Path     "/" or "\\", any case; "." and ".." are resolved. Matched by its end, so "x.dds" finds "sky/x.dds", unless
///          WHOLE_NAME. A full path in a mounted directory means the file there, packs that hold it first; any other
///          belongs to the disk, which is reached through the fallback alone.
/// Returns  the open file, or null (see fs::last_error).
/// Owns     the caller closes it with fs::close, before its source is removed.
/// Threads  any; takes the registry lock shared, and exclusive to create.
ENGINE_FS_API SFsFile* open(const char* path, EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags = FFSOpenFlags::NONE);

// Questions. They match by the end, too; each answers false or "" with the reason in fs::last_error where there is one,
// and any thread may ask.

/// Whether any source, the fallback included, holds the name. WHOLE_NAME and IN_CACHE_DIR are heeded.
ENGINE_FS_API bool exists(const char* path, FFSOpenFlags::FLAGS flags = FFSOpenFlags::NONE);
/// fs::exists, or a native file of exactly this path.
ENGINE_FS_API bool does_file_exist(const char* path);
ENGINE_FS_API bool native_does_file_exist(const char* path);
/// Whether a native directory of this path exists.
ENGINE_FS_API bool does_dir_exist(const char* path);

/// The directory of the first source that holds the name; "" when none does.
ENGINE_FS_API fs::string get_source_name(const char* path);
/// The native full path in lower case, from the first source that holds the name; "" when none does. To open the file by
/// other means, ask fs::native_path.
ENGINE_FS_API const fs::string full_path(const char* path);
/// The path under which that source holds it; "" when none does.
ENGINE_FS_API const fs::string root_path(const char* path);

/// The disk's own spelling of the file that reading `path` would open. False, with `out` as it was, when no source holds
/// it or it lies in a pack or in memory (UNSUPPORTED).
ENGINE_FS_API bool native_path(const char* path, fs::string& out);

/// Works out fs::full_path and keeps nothing.
ENGINE_FS_API void precache_file(const char* path);

/// Notes, in the order of their first opening, the normalised lower-case names that fs::open opens for reading.
/// Switching on starts afresh. For laying out a pack in the order in which it will be read.
ENGINE_FS_API void record_access(bool on);
/// The names noted so far. Replaces `out`.
ENGINE_FS_API void get_access_record(ztl::vector<fs::string>& out);

}  // namespace fs

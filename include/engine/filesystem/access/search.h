#pragma once

#include <engine/filesystem/api.h>
#include <engine/filesystem/contract/names.h>
#include <engine/kernel/ztl.h>

namespace fs {

/// The files in `dir` that match `mask`, from every source: sorted, each name once, the earliest source winning.
///
/// dir      null: any directory. "" with `recursive`: everything; without: the root only. Else that directory, with
///          `recursive` also those below it.
/// mask     `*` and `?` against the file name, any case; null or "" is any.
/// Returns  a list that the caller gives to fs::free_names; null when nothing matches, and, with OUT_OF_MEMORY in
///          fs::last_error, when there is no memory for all of it: a list is never short.
/// Threads  any; holds the registry lock shared.
ENGINE_FS_API FS_NAME* search(const char* dir, const char* mask, bool recursive, bool indexed_only);
/// The files whose directory contains `text`, from every source, merged in the same way.
ENGINE_FS_API FS_NAME* search_substring(const char* text);
/// The directory in the global name index, or null. The pointer ends with fs::rem_source, fs::refresh and fs::shutdown,
/// and with an fs::rem_dir of this directory or of one above it; nothing else moves or frees a directory.
ENGINE_FS_API const fs::idir* search_dir(const char* dir);

/// Every source reads its disk again, and the global index is rebuilt.
ENGINE_FS_API void refresh();
/// The sources concerned with `path` read it again: those mounted at it, and those that have it as a directory.
ENGINE_FS_API void refresh(const char* path);

/// Appends the native full name of every file of every source, in asking order ("" where it is too long).
ENGINE_FS_API void get_file_list(ztl::vector<fs::string>& out);

/// Appends the lines that tell of names held more than once: within one directory source, and by several sources under
/// different directories. `ext` (with its ".") limits them; null takes all.
ENGINE_FS_API void find_duplicates(ztl::vector<fs::string>& out, const char* ext);

ENGINE_FS_API void set_search_callback(search_callback callback);
ENGINE_FS_API search_callback get_search_callback();

}  // namespace fs

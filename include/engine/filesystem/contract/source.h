#pragma once

#include <cstdint>

#include <engine/filesystem/api.h>
#include <engine/filesystem/contract/file.h>
#include <engine/filesystem/contract/flags.h>
#include <engine/filesystem/contract/names.h>
#include <engine/filesystem/contract/path.h>
#include <engine/kernel/ztl.h>

namespace fs {

class dir_listing;  // opaque: a recorded listing of a directory source

}  // namespace fs

/// A place that files come from. The order of the virtual operations is part of the contract; a caller's own class
/// plugs in by fs::add_source(CFSSource*, flags).
///
/// Paths    relative to the source, normalised and lower-cased, except where creation keeps the caller's case.
/// Threads  called under the registry's lock: shared for questions and opens, exclusive for what changes tables. A
///          source must not call the registry's changing operations. init runs outside the lock.
class ENGINE_FS_API CFSSource {
public:
    CFSSource();
    virtual ~CFSSource();
    CFSSource(const CFSSource&) = delete;
    CFSSource& operator=(const CFSSource&) = delete;

    /// Mounts the source; true on success. `listing` may be null.
    virtual bool init(const fs::path& root, FFSAddSourceFlags::ENUM flags, fs::dir_listing* listing) = 0;
    /// Forgets every entry and the directory tree.
    virtual void clear() = 0;
    /// The path given to init.
    virtual const fs::path& path() = 0;
    /// The flags given to init.
    virtual FFSAddSourceFlags::ENUM flags() = 0;
    virtual void refresh_dir(const char* dir) = 0;
    virtual void refresh() = 0;
    /// Whether files may be created and written here.
    virtual bool writable() = 0;
    virtual EFSSourceType::TYPE type() = 0;
    virtual bool exists(const fs::path& p) = 0;
    /// The native full path of a file that the source holds; empty when it does not.
    virtual void full_path(fs::path& out, const fs::path& p) = 0;
    /// The path under which the source holds the file; empty when it does not.
    virtual void root_path(fs::path& out, const fs::path& p) = 0;
    /// Last write time (100 ns since 1601); -1 on failure.
    virtual std::int64_t write_time(const fs::path& p) = 0;
    virtual bool set_write_time(const fs::path& p, std::int64_t time) = 0;
    /// Whether the names that it holds are shielded from being written anywhere else.
    virtual bool is_protected() = 0;
    virtual bool read_only(const fs::path& p) = 0;
    virtual bool set_read_only(const fs::path& p, bool on) = 0;
    virtual void mark_installed_all(bool on);
    virtual void mark_installed(const fs::path& p, bool on);
    /// 0 unknown, 1 present and not installed, 2 present and installed.
    virtual int is_installed(const fs::path& p);
    // Opens: the caller owns the file; null when the name is absent or the open fails.
    virtual SFsFile* open_read(const fs::path& p, FFSOpenFlags::FLAGS flags) = 0;
    virtual SFsFile* open_write(const fs::path& p, FFSOpenFlags::FLAGS flags) = 0;
    virtual SFsFile* open_append(const fs::path& p, FFSOpenFlags::FLAGS flags) = 0;
    virtual SFsFile* open_read_write(const fs::path& p, FFSOpenFlags::FLAGS flags) = 0;
    virtual SFsFile* create_write(const fs::path& p, FFSOpenFlags::FLAGS flags) = 0;
    virtual SFsFile* create_read_write(const fs::path& p, FFSOpenFlags::FLAGS flags) = 0;
    virtual bool mkdir(const fs::path& p) = 0;
    /// Deletes a directory and everything in it.
    virtual void rem_dir(const fs::path& p) = 0;
    virtual bool rem_file(const fs::path& p) = 0;
    /// The files in `dir` that match `mask`; a list that the caller frees, null when there are none.
    /// `dir` null: any directory. "" with `recursive`: everything; without: the root. Else that directory, with
    /// `recursive` also those below it. `mask` null or "": any name; else matched against the file name (`*`, `?`).
    virtual FS_NAME* get_file_list(const char* dir, const char* mask, bool recursive) = 0;
    /// The files whose directory contains `text`.
    virtual FS_NAME* search_substring(const char* text) = 0;
    /// The source's directory tree; null when it has none.
    virtual fs::dir* dir_tree() = 0;
    /// Appends lines on duplicate names (only those of extension `ext` when it is not null).
    virtual void dump(ztl::vector<fs::string>& lines, const char* ext);
    /// The native root directory; "" when there is none.
    virtual const char* root_dir();
};

#pragma once

#include <cstdint>

#include <engine/filesystem/api.h>
#include <engine/filesystem/contract/flags.h>
#include <engine/kernel/ztl.h>

// Changing and describing files. Paths are virtual; each is resolved through the sources in asking order.
//
// Names    what changes, copies or removes takes a name as a whole: "save.dat" is never "profiles/save.dat". What only
//          asks (write_time, is_protected, read_only, is_installed) matches by the end, as fs::open does without
//          WHOLE_NAME. A full path in a mounted directory means the file there; any other one belongs to the fallback.
// Failure  false (or what is named below), the reason in fs::last_error, and everything as it was before.
// Threads  any. What changes names (mkdir, rename, rem_file, rem_dir, mark_installed) has the registry lock to itself
//          while it runs, and fails with INVALID_ARGUMENT inside of a source or callback that is being asked; the rest
//          shares it.

namespace fs {

/// Copies in pieces of `buffer_size` bytes (0: 32768). False when either file cannot be opened, with a message, or when
/// bytes are lost on the way; the first piece is read before the target is opened.
ENGINE_FS_API bool copy(const char* from, const char* to, std::uint32_t buffer_size);
/// Copies every file below the directory `from` to the same name below `to`. False when one of them could not be copied
/// (the others are), or when `from` holds nothing.
ENGINE_FS_API bool copy_dir(const char* from, const char* to);

/// -1, 0 or 1: how `a` stands to `b`, both in units of 100 ns and of one zone, within a tolerance.
ENGINE_FS_API int compare_time(std::int64_t a, std::int64_t b, std::uint32_t tolerance_ms);

/// Makes a directory where fs::open creates, unless the global index has it already (then true). A full path is made in the
/// source in whose directory it lies, or else on the disk when there is a fallback. A source that is not writable fails
/// with READ_ONLY, and the next is not tried.
ENGINE_FS_API bool mkdir(const char* path);
/// Makes a directory below the cache directory, on the disk.
ENGINE_FS_API bool mkdir_cache(const char* path);
/// Whether a directory below the cache directory exists on the disk; null or "" asks for the cache directory itself.
ENGINE_FS_API bool does_cache_dir_exist(const char* path);

/// Renames a file within the first source that holds it, also in case alone. False when `to` is held already, could not be
/// created, or is a full path that leads out of that source.
ENGINE_FS_API bool rename(const char* from, const char* to);
/// Deletes the file in the first source that holds it. No path leads out of the cache directory with IN_CACHE_DIR.
ENGINE_FS_API bool rem_file(const char* path, FFSOpenFlags::FLAGS flags = FFSOpenFlags::NONE);
/// Deletes a directory with everything in it from the first writable source that has it; links go themselves. The empty
/// path and one that climbs fail. What could not be removed is told in fs::last_error alone. Pointers from fs::search_dir
/// to this directory and to those below it end.
ENGINE_FS_API void rem_dir(const char* path);

/// Last write time in units of 100 ns since 1601 by the first source that holds the file; -1 when none does, 0 for a file
/// in a pack. A directory source speaks of local time and the fallback of universal time: compare times of one source.
ENGINE_FS_API std::int64_t write_time(const char* path);
/// Sets what write_time answers, in the same zone. A read-only file keeps its time and this is true all the same, with
/// the reason in fs::last_error.
ENGINE_FS_API bool set_write_time(const char* path, std::int64_t time);
/// "YYYY-MM-DD HH:MM:SS" of a file time, taken as it is (no time zone); "" for a time that has no calendar form.
ENGINE_FS_API fs::string get_time_as_str(std::int64_t time);

/// Whether the first source that holds the file is protected.
ENGINE_FS_API bool is_protected(const char* path);
/// The read-only attribute, by the first source that holds the file: asked, set, taken away.
ENGINE_FS_API bool read_only(const char* path);
ENGINE_FS_API bool read_only_set(const char* path);
ENGINE_FS_API bool read_only_remove(const char* path);

/// Marks one name, or every name, as installed or not, in every source.
ENGINE_FS_API void mark_installed(const char* path, bool on);
ENGINE_FS_API void mark_installed(bool on);
template <class Other>
void mark_installed(Other) = delete;  // a name without the switch would be taken for the switch
/// False only when a source knows the name as not installed and no later one as installed.
ENGINE_FS_API bool is_installed(const char* path);

/// Moves the file into its newest backup generation (NAME.bak), the older ones one step back (.ba1, .ba2, .ba3).
/// Afterwards the file itself is gone: writing the new version is the caller's business. Nothing happens when no source
/// holds a file of just this name; a copy that fails ends the work, with every generation whole under some name.
ENGINE_FS_API void create_backup_copy(const char* path);

/// What calc_file_crc is told and tells.
struct CrcCalcArgs {
    const char* path = nullptr;     // virtual name of the file
    std::uint32_t buffer_size = 0;  // bytes read at a time; 0: 256 KiB
    std::uint32_t crc = 0;          // result: CRC-32 (RFC 1952) of the whole file
    std::uint64_t size = 0;         // result: bytes that went into it
    bool (*progress)(std::uint64_t done, std::uint64_t total, void* user) = nullptr;  // false stops the work
    void* user = nullptr;
    FFSOpenFlags::FLAGS flags = FFSOpenFlags::NONE;  // as for fs::open
};
/// CRC-32 of a file's content. False, with crc and size 0, when it cannot be read whole, is damaged, or was stopped.
ENGINE_FS_API bool calc_file_crc(CrcCalcArgs& args);
ENGINE_FS_API bool calc_file_crc(const char* path, std::uint32_t& crc);

/// Where a file of this name would be written: the native full path, for people who must find it. "" when nowhere.
ENGINE_FS_API fs::string getOutLocationDebugHelper(const char* path);

}  // namespace fs

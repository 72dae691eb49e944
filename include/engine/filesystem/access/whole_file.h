#pragma once

#include <cstddef>
#include <cstdint>

#include <engine/filesystem/api.h>
#include <engine/filesystem/contract/file.h>
#include <engine/kernel/ztl.h>

// Whole files. Paths are virtual and found as by fs::open, by their end.
//
// Failure  null or false, the reason in fs::last_error: DISK_FULL, OUT_OF_MEMORY, IO and what fs::open tells. A write that
//          fails leaves what was written of the file, and with FFSOpenFlags::REPLACE among its flags the old file. A short
//          read is not reported: lengths are those of the file, and what did not come is zeros.
// Threads  any; the registry lock is held while the file is opened, never while it is read or written.

namespace fs {

/// The whole file in a new block (exactly its length, no terminator), freed by the caller with free(). Null, with
/// `*size` 0, on failure. `size` may be null.
ENGINE_FS_API void* read(const char* path, std::uint64_t* size);
/// The whole file into the caller's buffer, which must hold it. On a failed open nothing is touched.
ENGINE_FS_API void read(void* buffer, const char* path, std::uint64_t* size);
ENGINE_FS_API std::uint64_t read(std::nullptr_t, void* buffer, std::uint64_t size);  // no file: all bits set
ENGINE_FS_API void* read(std::nullptr_t, std::uint64_t* size);                       // no path: null

/// The bytes of the file as they are; an empty file leaves `out` as it was.
ENGINE_FS_API bool load_text_file(fs::string& out, const char* path);
ENGINE_FS_API bool save_text_file(const fs::string& text, const char* path,
                                  FFSOpenFlags::FLAGS flags = FFSOpenFlags::NONE);
/// Saves as "DIR/NAME_YYYYMMDD_HHMMSS.EXT" by local time.
ENGINE_FS_API bool save_text_file(const fs::string& text, const char* name, const char* ext, const char* dir);

/// As fs::read into a new block, which the caller frees with free().
ENGINE_FS_API bool load_binary_file(void** data, std::uint64_t* size, const char* path);
ENGINE_FS_API bool save_binary_file(const void* data, std::uint64_t size, const char* path,
                                    FFSOpenFlags::FLAGS flags = FFSOpenFlags::NONE);

/// Text as a zero-terminated wide string, freed by the caller with free(): UTF-16 (low byte first) when the file begins
/// with the byte-order mark, else the system's narrow code page. Null on failure. A file of one byte is an empty text.
ENGINE_FS_API wchar_t* load_wide_string(const char* path);
/// Byte-order mark and UTF-16 units, low byte first.
ENGINE_FS_API bool save_wide_string(const ztl::string_base<wchar_t>& text, const char* path,
                                    FFSOpenFlags::FLAGS flags = FFSOpenFlags::NONE);

}  // namespace fs

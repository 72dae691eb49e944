#pragma once

// The ordered list of sources: who is asked, and in which order.

#include <cstddef>
#include <cstdint>

#include <engine/filesystem/api.h>
#include <engine/filesystem/contract/source.h>
#include <engine/kernel/ztl.h>

/// What can be told of a registered source without touching it.
struct SFsSourceInfo {
    fs::string path_name;  // the directory of its path
    fs::string file_name;  // its file name, "" for a directory
    EFSSourceType::TYPE type = EFSSourceType::DIR;
    FFSAddSourceFlags::ENUM flags = FFSAddSourceFlags::NONE;
    bool writable = false;
    bool is_protected = false;
    std::uint32_t unlisted_directories = 0;  // that the latest mount or refresh could not list: names may be missing
};

namespace fs {

/// Registers a source that the caller has mounted; the registry owns it from here on. Null is passed over. Without memory
/// the source is destroyed, and fs::last_error says OUT_OF_MEMORY.
/// Threads  any; takes the registry lock exclusive.
ENGINE_FS_API void add_source(CFSSource* source, FFSAddSourceFlags::ENUM flags);

/// Takes exactly this source out of the list; the caller owns it again. False when it is not registered (the fallback
/// never is), or without memory for the index that remains. Its open files must be closed first.
ENGINE_FS_API bool rem_source(CFSSource* source);
ENGINE_FS_API bool rem_source(std::nullptr_t);

/// Whether a source's directory equals `path`, without regard to case and otherwise as given (no normalisation).
ENGINE_FS_API bool source_exists(const char* path);

/// The directory of the source where new files are created: the newest that was added with WRITE_HERE, else the first of
/// the list that was added without BEFORE_PACKS, else the first. "" when there is none. Valid until the list changes.
ENGINE_FS_API const char* write_path();
/// The cache directory, ending in "/"; "" before fs::init.
ENGINE_FS_API const char* get_cache_dir();
ENGINE_FS_API bool is_initialized();

/// A stored switch for the host's own use.
ENGINE_FS_API void enable_read_membuffer(bool on);
ENGINE_FS_API bool is_read_membuffer_enabled();

/// All sources in asking order, the fallback last. Replaces `out`.
ENGINE_FS_API void get_sources(ztl::vector<SFsSourceInfo>& out);
/// The sources that hold `path`, in asking order; of the flags WHOLE_NAME is heeded. Replaces `out`.
ENGINE_FS_API void find_holders(const char* path, ztl::vector<SFsSourceInfo>& out,
                                FFSOpenFlags::FLAGS flags = FFSOpenFlags::NONE);

}  // namespace fs

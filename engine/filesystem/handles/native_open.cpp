// The one native opener: mode and flags decide which kind of handle a path becomes, and with what rights.

#include "engine/filesystem/handles/native_open.h"

#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#include <engine/filesystem/access/open.h>

#include "engine/filesystem/access/notify_monitor.h"
#include "engine/filesystem/contract/open_rules.h"
#include "engine/filesystem/contract/set_error.h"
#include "engine/filesystem/handles/async_file.h"
#include "engine/filesystem/handles/gzip_file.h"
#include "engine/filesystem/handles/native_file.h"
#include "engine/filesystem/registry/registry.h"

namespace fs {
namespace {

/// The gz layer's mode, or null for a file that is not gzip.
const char* gzip_mode(EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags) {
    if (mode == EFSMode::READ) return has_any(flags, FFSOpenFlags::GZIP) ? "rb" : nullptr;
    if (mode != EFSMode::WRITE) return nullptr;
    if (has_any(flags, FFSOpenFlags::GZIP_LEVEL1)) return "wb1";
    if (has_any(flags, FFSOpenFlags::GZIP_LEVEL5)) return "wb5";
    return has_any(flags, FFSOpenFlags::GZIP_LEVEL9) ? "wb9" : nullptr;
}

bool is_async(EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags) {
    return mode == EFSMode::READ && has_any(flags, FFSOpenFlags::ASYNC | FFSOpenFlags::ASYNC_UNBUFFERED) &&
           !has_any(flags, FFSOpenFlags::GZIP);
}

platform::Access access_of(EFSMode::TYPE mode) {
    if (mode == EFSMode::READ) return platform::Access::READ;
    return mode == EFSMode::READ_WRITE ? platform::Access::READ_WRITE : platform::Access::WRITE;
}

platform::Disposition disposition_of(EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags) {
    const bool writes = mode == EFSMode::WRITE || mode == EFSMode::READ_WRITE;
    if (writes && has_any(flags, FFSOpenFlags::CREATE)) return platform::Disposition::CREATE_ALWAYS;
    if (gzip_mode(mode, flags) != nullptr && mode == EFSMode::WRITE) return platform::Disposition::CREATE_ALWAYS;
    return mode == EFSMode::WRITE ? platform::Disposition::TRUNCATE_EXISTING : platform::Disposition::OPEN_EXISTING;
}

platform::OpenOptions options_of(EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags) {
    const bool async = is_async(mode, flags);
    return {.access = access_of(mode),
            .disposition = disposition_of(mode, flags),
            .write_through = has_any(flags, FFSOpenFlags::WRITE_THROUGH),
            .unbuffered = async && has_any(flags, FFSOpenFlags::ASYNC_UNBUFFERED),
            .overlapped = async};
}

SFsFile* wrap(CFSSource* source, platform::File file, const char* path, EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags) {
    if (const char* const gz = gzip_mode(mode, flags); gz != nullptr)
        return FileGzipped::Create(source, std::move(file), gz);
    if (is_async(mode, flags)) return Win32FileHandleAsync::Create(source, std::move(file), path);
    if (mode == EFSMode::APPEND && !file.seek(0, platform::Origin::END)) return nullptr;
    return new (std::nothrow) Win32FileHandle(source, std::move(file));
}

bool set_name(SFsFile& file, std::string_view name) {
    if (name.empty()) return true;
    file.name = static_cast<char*>(std::malloc(name.size() + 1));
    if (file.name == nullptr) return false;
    std::memcpy(file.name, name.data(), name.size());
    file.name[name.size()] = '\0';
    return true;
}

/// Names a new handle, or gives it up when there is no memory for handle or name.
SFsFile* finish(SFsFile* file, const char* path, std::string_view name) {
    if (file != nullptr && set_name(*file, name)) return file;
    delete file;
    set_error(EFSError::OUT_OF_MEMORY, path, "No memory for an open file.");
    return nullptr;
}

/// A plain handle for a source's own kinds of opens.
SFsFile* open_plain(CFSSource* source, const platform::PathAt& path, EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags,
                    platform::Disposition disposition, std::string_view name) {
    platform::File file = platform::File::open(path, {.access = access_of(mode),
                                                      .disposition = disposition,
                                                      .write_through = has_any(flags, FFSOpenFlags::WRITE_THROUGH)});
    if (!file.valid()) {
        refuse_by_disk(path.full, "cannot be opened");
        return nullptr;
    }
    SFsFile* const handle = finish(new (std::nothrow) Win32FileHandle(source, std::move(file)), path.full, name);
    if (handle == nullptr) return nullptr;
    if (mode == EFSMode::APPEND) handle->seek(0, EFSSeek::END);
    notify_monitor(path.full, mode, flags);
    return handle;
}

}  // namespace

SFsFile* open_native(CFSSource* source, const char* path, EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags) {
    return open_native_at(source, platform::PathAt{.full = path != nullptr ? path : ""}, mode, flags, {});
}

SFsFile* open_native_at(CFSSource* source, const platform::PathAt& path, EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags,
                        std::string_view name) {
    if (!is_valid_open(mode, flags)) {
        set_error(EFSError::INVALID_ARGUMENT, path.full, "Mode and flags of the open exclude each other.");
        return nullptr;
    }
    // Asked by a source in the midst of an open by name, the file is opened here: the lock cannot be taken twice.
    if (mode == EFSMode::READ && has_any(flags, FFSOpenFlags::THROUGH_VFS) && !registry::this_thread_holds_lock())
        return open(path.full, mode, flags & ~FFSOpenFlags::THROUGH_VFS);
    platform::File file = platform::File::open(path, options_of(mode, flags));
    if (!file.valid()) {
        refuse_by_disk(path.full, "cannot be opened");
        return nullptr;
    }
    SFsFile* const handle = finish(wrap(source, std::move(file), path.full, mode, flags), path.full, name);
    if (handle != nullptr) notify_monitor(path.full, mode, flags);
    return handle;
}

SFsFile* open_for_change(CFSSource* source, const platform::PathAt& path, EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags,
                         std::string_view name) {
    const bool create = mode == EFSMode::READ_WRITE && has_any(flags, FFSOpenFlags::CREATE);
    const auto disposition = create ? platform::Disposition::CREATE_ALWAYS : platform::Disposition::OPEN_ALWAYS;
    return open_plain(source, path, mode, flags, disposition, name);
}

SFsFile* create_for_change(CFSSource* source, const platform::PathAt& path, FFSOpenFlags::FLAGS flags,
                           std::string_view name) {
    return open_plain(source, path, EFSMode::READ_WRITE, flags, platform::Disposition::CREATE_ALWAYS, name);
}

}  // namespace fs

// The one native opener: mode and flags decide which kind of handle a path becomes, and with what rights.

#include "engine/filesystem/handles/native_open.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include <engine/filesystem/access/open.h>

#include "engine/filesystem/access/parts.h"
#include "engine/filesystem/contract/failure.h"
#include "engine/filesystem/contract/open_file.h"
#include "engine/filesystem/handles/async_file.h"
#include "engine/filesystem/handles/io_queue.h"
#include "engine/filesystem/handles/native_file.h"
#include "engine/filesystem/registry/registry.h"
#include "engine/platform/directories.h"

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
    if (writes && has_any(flags, FFSOpenFlags::CREATE)) return platform::Disposition::TRUNCATE_OR_CREATE;
    if (gzip_mode(mode, flags) != nullptr && mode == EFSMode::WRITE) return platform::Disposition::TRUNCATE_OR_CREATE;
    return mode == EFSMode::WRITE ? platform::Disposition::TRUNCATE : platform::Disposition::OPEN;
}

platform::OpenOptions options_of(EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags, platform::Disposition disposition) {
    const bool async = is_async(mode, flags);
    return {.access = access_of(mode),
            .disposition = disposition,
            .write_through = has_any(flags, FFSOpenFlags::WRITE_THROUGH),
            .unbuffered = async && has_any(flags, FFSOpenFlags::ASYNC_UNBUFFERED),
            .overlapped = async,
            .at_end = mode == EFSMode::APPEND,
            .replaces = has_any(flags, FFSOpenFlags::REPLACE)};
}

using Handle = std::unique_ptr<SFsFile>;
using Writer = std::unique_ptr<NativeWriter>;

/// Every handle exists, with its name, before its file is opened: so no file is made or cut for want of memory.
template <typename Kind>
std::unique_ptr<Kind> named(std::unique_ptr<Kind> handle, std::string_view name) {
    if (name.empty()) return handle;
    handle->name = static_cast<char*>(std::malloc(name.size() + 1));
    if (handle->name == nullptr) throw std::bad_alloc();
    std::memcpy(handle->name, name.data(), name.size());
    handle->name[name.size()] = '\0';
    return handle;
}

std::nullptr_t refuse_open(const char* path) {
    refuse_by_disk(path, "cannot be opened");
    return nullptr;
}

Writer open_plain(CFSSource* source, const platform::PathAt& path, const platform::OpenOptions& options,
                  std::string_view name) {
    auto handle = named(std::make_unique<Win32FileHandle>(source), name);
    platform::File file = platform::File::open(path, options);
    if (!file.valid()) return refuse_open(path.full);
    handle->Attach(std::move(file));
    return handle;
}

Handle open_async(CFSSource* source, const platform::PathAt& path, const platform::OpenOptions& options,
                  std::string_view name) {
    auto handle = named(std::make_unique<Win32FileHandleAsync>(source, path.full, take_queue()), name);
    platform::File file = platform::File::open(path, options);
    if (!file.valid() || !handle->Attach(std::move(file))) return refuse_open(path.full);
    return handle;
}

/// A writer is opened as it stands, and emptied only when the gz layer has all it needs. A file that this made goes again
/// when the layer cannot be put over it.
Writer open_gzip(CFSSource* source, const platform::PathAt& path, platform::OpenOptions options, const char* gz,
                 std::string_view name) {
    auto handle = named(std::make_unique<FileGzipped>(source), name);
    options.disposition = platform::Disposition::OPEN;
    platform::File file = platform::File::open(path, options);
    const bool is_new = !file.valid() && options.access == platform::Access::WRITE &&
                        platform::last_error().failure == platform::Failure::NOT_FOUND;
    if (is_new) {
        options.disposition = platform::Disposition::OPEN_OR_CREATE;
        file = platform::File::open(path, options);
    }
    if (!file.valid()) return refuse_open(path.full);
    if (handle->Attach(std::move(file), path.full, gz)) return handle;
    if (is_new) platform::remove_file(path.full);
    return nullptr;
}

Writer open_at_once(CFSSource* source, const platform::PathAt& path, EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags,
                    std::string_view name) {
    const platform::OpenOptions options = native_options(mode, flags);
    const char* const gz = gzip_mode(mode, flags);
    return gz != nullptr ? open_gzip(source, path, options, gz, name) : open_plain(source, path, options, name);
}

/// Where the disk holds, or would hold, the file to replace. False where no file of this name could be written.
bool find_target(const char* path, bool creates, char (&target)[platform::path_buffer_size]) {
    if (!platform::resolve_link(path, target)) return refuse_by_disk(path, "cannot be looked for");
    const auto before = platform::get_attributes(target);
    if (!before) {
        const bool is_new = platform::last_error().failure == platform::Failure::NOT_FOUND;
        return (is_new && creates) || refuse_by_disk(path, "cannot be opened");
    }
    if (before->is_directory) return refuse(EFSError::ACCESS_DENIED, path, "A directory has this name.");
    return !before->is_read_only || refuse(EFSError::READ_ONLY, path, "The file is read-only.");
}

Handle open_replacing(CFSSource* source, const platform::PathAt& path, EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags,
                      std::string_view name) {
    char target[platform::path_buffer_size];
    const bool creates = native_options(mode, flags).creates();
    if (!find_target(path.full, creates, target)) return nullptr;
    std::string beside(target);
    beside.insert(beside.find_last_of("/\\") + 1, 1, '#');
    auto handle = named(std::make_unique<ReplacingHandle>(source, target, beside), name);
    Writer writer = open_at_once(source, {.full = beside.c_str()}, mode, flags | FFSOpenFlags::CREATE, name);
    if (writer == nullptr) return nullptr;
    handle->Attach(std::move(writer));
    return handle;
}

Handle open_handle(CFSSource* source, const platform::PathAt& path, EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags,
                   std::string_view name) {
    const bool replaces = mode == EFSMode::WRITE && has_any(flags, FFSOpenFlags::REPLACE);
    if (replaces) return open_replacing(source, path, mode, flags, name);
    if (is_async(mode, flags)) return open_async(source, path, native_options(mode, flags), name);
    return open_at_once(source, path, mode, flags, name);
}

/// Runs an open as a boundary, and tells the monitor when it succeeded. What a monitor that throws leaves of a file written
/// beside its target is given up.
template <typename Open>
SFsFile* finish_open(const char* path, EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags, Open open) {
    return guarded<SFsFile*>(path, nullptr, [&] {
        std::unique_ptr<SFsFile, decltype(&discard)> handle(open().release(), discard);
        if (handle != nullptr) notify_monitor(path, mode, flags);
        return handle.release();
    });
}

}  // namespace

platform::OpenOptions native_options(EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags) {
    return options_of(mode, flags, disposition_of(mode, flags));
}

SFsFile* open_native(CFSSource* source, const char* path, EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags) {
    return open_native_at(source, platform::PathAt{.full = path != nullptr ? path : ""}, mode, flags, {});
}

SFsFile* open_native_at(CFSSource* source, const platform::PathAt& path, EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags,
                        std::string_view name) {
    if (!is_valid_open(mode, flags)) {
        return refuse(EFSError::INVALID_ARGUMENT, path.full, "Mode and flags of the open exclude each other."), nullptr;
    }
    // Asked by a source in the midst of an open by name, the file is opened here: the lock cannot be taken twice.
    if (mode == EFSMode::READ && has_any(flags, FFSOpenFlags::THROUGH_VFS) && !registry::this_thread_holds_lock())
        return open(path.full, mode, flags & ~FFSOpenFlags::THROUGH_VFS);
    return finish_open(path.full, mode, flags, [&] { return open_handle(source, path, mode, flags, name); });
}

SFsFile* open_for_change(CFSSource* source, const platform::PathAt& path, EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags,
                         std::string_view name) {
    if (mode == EFSMode::READ_WRITE && has_any(flags, FFSOpenFlags::CREATE))
        return create_for_change(source, path, flags, name);
    const platform::OpenOptions options = options_of(mode, flags, platform::Disposition::OPEN_OR_CREATE);
    return finish_open(path.full, mode, flags, [&] { return open_plain(source, path, options, name); });
}

SFsFile* create_for_change(CFSSource* source, const platform::PathAt& path, FFSOpenFlags::FLAGS flags,
                           std::string_view name) {
    constexpr auto mode = EFSMode::READ_WRITE;
    const platform::OpenOptions options = options_of(mode, flags, platform::Disposition::TRUNCATE_OR_CREATE);
    return finish_open(path.full, mode, flags, [&] { return open_plain(source, path, options, name); });
}

}  // namespace fs

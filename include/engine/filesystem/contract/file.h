#pragma once

#include <cstdint>

#include <engine/filesystem/api.h>
#include <engine/filesystem/contract/flags.h>
#include <engine/filesystem/request.h>

class CFSSource;
struct SNativeOverlapped;  // opaque: a record of one native read in flight, on Windows an OVERLAPPED

/// An open file, whatever produced it. The order of the virtual operations is part of the contract.
///
/// Owns     whoever received it closes it with fs::close, before its source is removed.
/// Threads  one thread at a time; read_async, cancel_async and the request may be used from any.
/// Failure  all bits set from the operations that return a size, false from the others; nothing throws.
class ENGINE_FS_API SFsFile {
public:
    SFsFile();
    virtual ~SFsFile();  // frees `name`
    SFsFile(const SFsFile&) = delete;
    SFsFile& operator=(const SFsFile&) = delete;

    /// Reads at the position and moves it. Bytes read, less than `size` at the end of the file.
    virtual std::uint64_t read(void* buffer, std::uint64_t size) = 0;
    /// Queues a read at `offset`; `buffer` and the file must live until the request has finished. False: not supported.
    virtual bool read_async(void* buffer, std::uint64_t offset, std::uint64_t size, SFsRequest* request,
                            std::uint32_t priority);
    /// Writes at the position and moves it. Bytes written.
    virtual std::uint64_t write(const void* buffer, std::uint64_t size) = 0;
    virtual bool write_async(const void* buffer, std::uint64_t offset, std::uint64_t size, SFsRequest* request,
                             std::uint32_t priority);
    virtual bool seek(std::int64_t offset, EFSSeek::TYPE origin) = 0;
    /// Size in bytes; all bits set when it is not known.
    virtual std::uint64_t length() = 0;
    virtual std::uint64_t tell() = 0;
    /// Cuts (or extends) the file at the position.
    virtual bool set_eof();
    virtual void cancel_async(SFsRequest* request);
    /// Cancels all native reads under way on this file.
    virtual bool cancel_io();
    /// One native read for the read queue: 0 pending, 1 done, 2 failed, 3 aborted.
    virtual int read_overlapped(void* buffer, std::uint32_t size, std::uint32_t* transferred,
                                SNativeOverlapped* overlapped);
    virtual int write_overlapped(void* buffer, std::uint32_t size, std::uint32_t* transferred,
                                 SNativeOverlapped* overlapped);

    char* name = nullptr;         // a block of the C allocator, or null
    CFSSource* source = nullptr;  // who produced the file, or null; not owned, not used after opening
};

namespace fs {

// The same operations as free functions that accept a null file.

ENGINE_FS_API void close(SFsFile* file);
/// Closes with an answer: false, with the reason in fs::last_error, for null, when what was buffered could not be written,
/// and when a file opened with FFSOpenFlags::REPLACE could not take its place; then the old file stays.
///
/// Such a file is written beside its target, under the target's name behind "#", which no mount shows, and renamed when it
/// is closed: by this, or by fs::close, which gives no answer. Its content is on the disk before it has the name, so
/// that whatever happens, a reader finds the old file or the new one, whole. A write that fails, a target that is open by
/// then or became read-only, and fs::discard leave the old file. A second writer of the same target is refused; what a
/// killed process left is written anew by the next one. Where a link is opened, the file behind it is replaced. A
/// caller's own source gets the flag as any other, and does with it what it can.
ENGINE_FS_API bool commit(SFsFile* file);
/// Closes, and leaves the old file when this one was opened with FFSOpenFlags::REPLACE.
ENGINE_FS_API void discard(SFsFile* file);
ENGINE_FS_API std::uint64_t read(SFsFile* file, void* buffer, std::uint64_t size);         // null: all bits set
ENGINE_FS_API std::uint64_t write(SFsFile* file, const void* buffer, std::uint64_t size);  // null: all bits set
ENGINE_FS_API std::uint64_t length(SFsFile* file);                                         // null: all bits set
ENGINE_FS_API std::uint64_t tell(SFsFile* file);                                           // null: all bits set
ENGINE_FS_API bool seek(SFsFile* file, std::int64_t offset, EFSSeek::TYPE origin);         // null: false
ENGINE_FS_API bool set_eof(SFsFile* file);                                                 // null: false
/// The file's name, "" when it has none; null for a null file.
ENGINE_FS_API const char* file_name(SFsFile* file);

}  // namespace fs

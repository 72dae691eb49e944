#pragma once

// Packs that are no files of the disk: nested in other packs, encrypted, in memory, on the network.

#include <cstdint>

#include <engine/filesystem/api.h>
#include <engine/filesystem/contract/flags.h>
#include <engine/kernel/ztl.h>

namespace fs {

/// The bytes of one pack, which never change. A host derives from it.
///
/// Threads  read_at and last_failure are called from any thread, by several at once. No lock of the library is held in
///          any of these, so they may open and read files of fs::, but not remove the pack's own source.
/// Failure  what throws has failed too.
class pack_reader {
public:
    /// Bytes of the pack; all ones on failure. Asked once, when the pack is mounted, before anything is read.
    virtual std::uint64_t length() = 0;
    /// Reads `size` bytes at `offset`, which the length allows, into `to`. Returns how many it read; any other number
    /// than `size` is a failure. What it has read of them is then not used.
    virtual std::int64_t read_at(std::uint64_t offset, void* to, std::uint64_t size) = 0;
    /// Why the latest call failed on this thread, as a phrase like "the server does not answer"; "" when there is no
    /// more to say. Asked right after a failure.
    virtual fs::string last_failure() { return {}; }
    /// What will be read soon, and may be fetched meanwhile. Returns at once.
    virtual void prefetch(std::uint64_t /*offset*/, std::uint64_t /*size*/) {}
    /// The library is done with the reader, which may now be destroyed. Called once, on any thread: when add_pack_reader
    /// fails, before it returns; else once the source is removed and the last open file of the pack is closed.
    virtual void release() noexcept {}

protected:
    ~pack_reader() = default;
};

/// Mounts the pack that `reader` reads and registers it, as add_source does for one of the disk. Only its directory is
/// read; each entry's local header is when the entry is first read or viewed, and a failure of that is one of the read.
///
/// name     what sources and messages call it, and what rem_source takes: any text of at most 259 bytes that no source has.
/// reader   stays the host's, and is used until its `release` is called.
/// Returns  false, with the reason in fs::last_error, when it is no pack or cannot be read (IO).
/// Threads  any; the reader is never called under the registry lock.
ENGINE_FS_API bool add_pack_reader(const char* name, pack_reader& reader,
                                   FFSAddSourceFlags::ENUM flags = FFSAddSourceFlags::NONE);

}  // namespace fs

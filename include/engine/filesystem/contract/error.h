#pragma once

#include <cstdint>

#include <engine/filesystem/api.h>
#include <engine/kernel/ztl.h>

/// Why a call failed, in kinds that a program can act on.
struct EFSError {
    enum TYPE : std::uint32_t {
        NONE = 0,
        NOT_FOUND,       // no source holds the name, or the disk has lost it
        ACCESS_DENIED,   // the system refuses, or a protected source shields the name
        IN_USE,          // open elsewhere in a way that excludes this use
        ALREADY_EXISTS,  // also: a source of that path is registered
        READ_ONLY,       // a read-only file or source
        DISK_FULL,
        INVALID_NAME,  // empty, too long, climbing, or what Windows cannot hold
        INVALID_ARGUMENT,
        NOT_INITIALIZED,
        BAD_FORMAT,   // the bytes are not what they should be
        UNSUPPORTED,  // well-formed, but not in the form that this library holds
        TOO_LARGE,
        OUT_OF_MEMORY,
        CANCELLED,
        IO,  // the system failed to read or write
    };
};

/// One failure: what, where and why.
struct SFsError {
    EFSError::TYPE code = EFSError::NONE;
    std::int32_t os_code = 0;  // errno or GetLastError; 0 when no system call was involved
    fs::string path;           // as the failing layer knew it
    fs::string text;           // one sentence that says who refused and why
};

namespace fs {

/// The calling thread's most recent failure; a success leaves it alone.
///
/// Returns  a reference that stays valid until the thread ends and changes with its next failure.
/// Threads  each thread has its own.
ENGINE_FS_API const SFsError& last_error();

/// Forgets the calling thread's most recent failure.
ENGINE_FS_API void clear_error();

}  // namespace fs

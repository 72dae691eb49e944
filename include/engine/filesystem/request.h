#pragma once

#include <cstdint>

#include <engine/filesystem/api.h>

/// Where an asynchronous request stands.
struct EFSRequestState {
    enum TYPE : std::uint32_t { IDLE = 0, QUEUED = 1, IN_PROGRESS = 2, FINISHED = 3 };
};

/// How it ended; meaningful once it is FINISHED.
struct EFSRequestResult {
    enum TYPE : std::uint32_t { SUCCESS = 0, FAILED = 1, CANCELLED = 2 };
};

/// The record through which a caller is told of the end of an asynchronous read.
///
/// Owns     counted: Create gives one reference to the caller, the queue holds another while the read is under way.
/// Threads  every member may be called from any thread. The callback runs on the thread that finishes the request:
///          the queue's worker, a canceller, or the caller itself for a read of 0 bytes.
/// A request serves one read at a time; when FINISHED it may be used again.
struct SFsRequest {
    using Callback = void (*)(SFsRequest* request, void* user);

    /// A new, idle request with one reference; `callback` may be null. Null when memory or an event cannot be had.
    ENGINE_FS_API static SFsRequest* Create(Callback callback, void* user);

    ENGINE_FS_API void AddRef();
    /// Gives a reference back; the last one frees the request.
    ENGINE_FS_API void Release();

    /// Waits until the read has finished. False when `timeout_ms` passed first.
    ENGINE_FS_API bool Wait(std::uint32_t timeout_ms = 0xFFFFFFFFu);
    ENGINE_FS_API EFSRequestState::TYPE State() const;
    ENGINE_FS_API EFSRequestResult::TYPE Result() const;
    /// Bytes read; 0 unless the result is SUCCESS.
    ENGINE_FS_API std::uint64_t Transferred() const;

    SFsRequest(const SFsRequest&) = delete;
    SFsRequest& operator=(const SFsRequest&) = delete;

protected:
    SFsRequest() = default;   // only Create makes one
    ~SFsRequest() = default;  // only Release destroys one
};

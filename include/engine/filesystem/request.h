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
/// A request serves one read at a time: it is queued by SFsFile::read_async and may serve the next one, of any file, once
/// Wait has returned or its callback runs; before, also when it is FINISHED, queueing fails with IN_USE. A read without a
/// request is passed over with a warning in the log, since nobody would hear of its end; one of 0 bytes ends on the spot.
///
/// Callback runs once for each read, after the event that Wait waits for is set, on the thread that finishes the read: the
///          queue's worker, the thread that cancels it or closes its file, or the caller itself for 0 bytes. It may queue
///          the next read, with this request too. It keeps the worker from all other reads while it runs. What it
///          throws ends nothing but the callback.
/// Cancel   SFsFile::cancel_async returns after the callback, except when it is called in a callback of the worker. So
///          the canceller must have no lock that the callback wants.
/// Owns     counted: Create gives one reference to the caller, the queue has another while the read is under way. The
///          buffer and what `user` points to belong to the caller and live until the callback has run.
/// Threads  every member may be called from any thread.
struct SFsRequest {
    using Callback = void (*)(SFsRequest* request, void* user);

    /// A new, idle request with one reference; `callback` may be null. Null without memory (OUT_OF_MEMORY).
    ENGINE_FS_API static SFsRequest* Create(Callback callback, void* user);

    ENGINE_FS_API void AddRef();
    /// Gives a reference back; the last one frees the request.
    ENGINE_FS_API void Release();

    /// Waits until the read has finished, its callback not included; for ever without `timeout_ms`, milliseconds. False
    /// when the time passed first. A request that was never queued has nothing to wait for and waits as long.
    ENGINE_FS_API bool Wait(std::uint32_t timeout_ms = 0xFFFFFFFFu);
    ENGINE_FS_API EFSRequestState::TYPE State() const;
    ENGINE_FS_API EFSRequestResult::TYPE Result() const;
    /// The number of bytes that were asked for, also when the file ended before; 0 unless the result is SUCCESS.
    ENGINE_FS_API std::uint64_t Transferred() const;

    SFsRequest(const SFsRequest&) = delete;
    SFsRequest& operator=(const SFsRequest&) = delete;

protected:
    SFsRequest() = default;   // only Create makes one
    ~SFsRequest() = default;  // only Release destroys one
};

#pragma once

#include <atomic>
#include <cstdint>
#include <list>

#include <engine/filesystem/request.h>
#include <engine/kernel/multithreading.h>

#include "engine/filesystem/handles/request_status.h"

class Request;
class Win32FileHandleAsync;
using RequestList = std::list<Request*>;

/// The layout behind SFsRequest. A request leaves QUEUED only under the queue's lock.
class Request final : public SFsRequest {
public:
    Request(Callback callback, void* user) : callback_(callback), user_(user) {}  // throws std::bad_alloc

    static Request& Of(SFsRequest* request) { return *static_cast<Request*>(request); }
    static const Request& Of(const SFsRequest* request) { return *static_cast<const Request*>(request); }

    void AddReference() { references_.fetch_add(1, std::memory_order_relaxed); }
    void ReleaseReference();

    EFSRequestState::TYPE State() const { return status_.State(); }
    EFSRequestResult::TYPE Result() const { return status_.Result(); }
    std::uint64_t Transferred() const;
    bool Wait(std::uint32_t timeout_ms) { return event_.Wait(timeout_ms); }

    /// Whether it may serve the next read: not while it is on its way, nor until a cancelled read has ended.
    bool IsFree() const;
    void BeginQueued();
    /// From QUEUED to IN_PROGRESS, or to FINISHED and CANCELLED.
    void BeginProgress(bool cancelled);
    /// To FINISHED with this result, unless it was cancelled meanwhile.
    void EndProgress(EFSRequestResult::TYPE result, std::uint64_t transferred);
    /// To FINISHED and CANCELLED from whatever state, which is returned.
    EFSRequestState::TYPE Cancel() { return status_.Cancel(); }
    /// To FINISHED and SUCCESS without a read.
    void FinishEmpty();
    /// Sets the event, then calls the callback. Without a lock, since the callback may queue the next read.
    void Signal();

    // The read; whoever queues it writes it, and it stays until the request is FINISHED.
    Win32FileHandleAsync* file = nullptr;
    void* buffer = nullptr;
    std::uint64_t offset = 0;
    std::uint64_t size = 0;
    std::int32_t priority = 0;
    // The request's own node of a list: it waits in the queue's while QUEUED, so that queueing needs no memory.
    RequestList home{this};
    const RequestList::iterator place = home.begin();

    Request* next_cancelled = nullptr;  // for whoever cancels many

private:
    ~Request() = default;

    const Callback callback_;
    void* const user_;
    mt::CEvent event_{true};
    RequestStatus status_{EFSRequestState::IDLE};
    std::atomic<bool> is_being_read_{false};
    std::atomic<std::uint32_t> references_{1};
    std::atomic<std::uint64_t> transferred_{0};
};

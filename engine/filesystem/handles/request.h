#pragma once

#include <atomic>
#include <cstdint>
#include <list>

#include <engine/filesystem/request.h>
#include <engine/kernel/multithreading.h>

class Request;
struct QueuedFile;
using RequestList = std::list<Request*>;

/// State and result of a request or a load in one, so that whoever sees FINISHED sees the result that goes with it.
class RequestStatus {
public:
    explicit RequestStatus(EFSRequestState::TYPE state) : both_(Both{state}) {}

    EFSRequestState::TYPE State() const { return both_.load(std::memory_order_acquire).state; }
    EFSRequestResult::TYPE Result() const { return both_.load(std::memory_order_acquire).result; }
    bool HasSucceeded() const {
        return both_.load(std::memory_order_acquire) == Both{EFSRequestState::FINISHED, EFSRequestResult::SUCCESS};
    }
    void Set(EFSRequestState::TYPE state, EFSRequestResult::TYPE result = EFSRequestResult::SUCCESS) {
        both_.store({state, result}, std::memory_order_release);
    }
    /// From IN_PROGRESS to FINISHED with this result; from any other state nothing happens.
    void EndProgress(EFSRequestResult::TYPE result) {
        Both both{EFSRequestState::IN_PROGRESS};
        both_.compare_exchange_strong(both, {EFSRequestState::FINISHED, result});
    }
    /// To FINISHED and CANCELLED from whatever state, which is returned.
    EFSRequestState::TYPE Cancel() {
        return both_.exchange({EFSRequestState::FINISHED, EFSRequestResult::CANCELLED}).state;
    }

private:
    struct alignas(8) Both {  // so that every processor moves the two in one go
        EFSRequestState::TYPE state;
        EFSRequestResult::TYPE result = EFSRequestResult::SUCCESS;
        bool operator==(const Both&) const = default;
    };
    std::atomic<Both> both_;
};

/// The layout behind SFsRequest. A request leaves QUEUED only under the queue's lock.
class Request final : public SFsRequest {
public:
    Request(Callback callback, void* user) : callback_(callback), user_(user) {}  // throws std::bad_alloc

    static Request& Of(SFsRequest* request) { return *static_cast<Request*>(request); }
    static const Request& Of(const SFsRequest* request) { return *static_cast<const Request*>(request); }

    /// Whether it may serve the next read: FINISHED is not enough, since the event of the last one may still be to come.
    bool IsFree() { return !was_queued_.load(std::memory_order_relaxed) || event_.Wait(0); }
    void BeginQueued();
    /// To FINISHED and SUCCESS without a read.
    void FinishEmpty();
    /// Sets the event, then calls the callback. Without a lock, since the callback may queue the next read.
    void Signal();

    RequestStatus status{EFSRequestState::IDLE};
    // The read; whoever queues it writes it, and it stays until the request is FINISHED.
    QueuedFile* file = nullptr;
    void* buffer = nullptr;
    std::uint64_t offset = 0;
    std::atomic<std::uint64_t> size{0};  // what was transferred, when it has succeeded
    std::int32_t priority = 0;
    // The request's own node of a list: it waits in the queue's while QUEUED, so that queueing needs no memory.
    RequestList home{this};
    const RequestList::iterator place = home.begin();

private:
    friend struct SFsRequest;
    ~Request() = default;

    const Callback callback_;
    void* const user_;
    mt::CEvent event_{true};
    std::atomic<bool> was_queued_{false};
    std::atomic<std::uint32_t> references_{1};
};

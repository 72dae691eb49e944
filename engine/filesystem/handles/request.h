#pragma once

#include <atomic>
#include <cstdint>
#include <list>

#include <engine/filesystem/request.h>
#include <engine/kernel/multithreading.h>

class Request;
class Win32FileHandleAsync;

/// One read that waits for the worker.
struct QueuedRead {
    Win32FileHandleAsync* file = nullptr;
    void* buffer = nullptr;
    std::uint64_t offset = 0;
    std::uint64_t size = 0;
    Request* request = nullptr;  // the queue has one reference; may be null
};

/// The layout behind SFsRequest. State and result change together, in one atomic word, so that whoever sees FINISHED
/// sees the result that goes with it. All changes but those of an empty read are made under the queue's lock.
class Request final : public SFsRequest {
public:
    Request(Callback callback, void* user) : callback_(callback), user_(user) {}

    static Request& Of(SFsRequest* request) { return *static_cast<Request*>(request); }
    static const Request& Of(const SFsRequest* request) { return *static_cast<const Request*>(request); }

    void AddReference() { references_.fetch_add(1, std::memory_order_relaxed); }
    void ReleaseReference();

    EFSRequestState::TYPE State() const { return static_cast<EFSRequestState::TYPE>(Word() & 0xFF); }
    EFSRequestResult::TYPE Result() const { return static_cast<EFSRequestResult::TYPE>(Word() >> 8); }
    std::uint64_t Transferred() const;
    bool Wait(std::uint32_t timeout_ms) { return event_.Wait(timeout_ms); }

    /// Makes an idle or finished request a queued one. False while it is on its way already.
    bool BeginQueued();
    /// From QUEUED to IN_PROGRESS, or to FINISHED and CANCELLED.
    void BeginProgress(bool cancelled);
    /// To FINISHED with this result, unless it was cancelled meanwhile.
    void EndProgress(EFSRequestResult::TYPE result, std::uint64_t transferred);
    /// To FINISHED and CANCELLED from whatever state, which is returned.
    EFSRequestState::TYPE Cancel();
    /// To FINISHED and SUCCESS without a read.
    void FinishEmpty();
    /// Sets the event, then calls the callback. Without a lock, since the callback may queue the next read.
    void Signal();

    // Where the read waits, while QUEUED; guarded by the queue's lock.
    std::int32_t priority = 0;
    std::list<QueuedRead>::iterator place;

private:
    ~Request() = default;
    void Set(EFSRequestState::TYPE state, EFSRequestResult::TYPE result);
    std::uint32_t Word() const { return word_.load(std::memory_order_acquire); }

    const Callback callback_;
    void* const user_;
    mt::CEvent event_{true};
    std::atomic<std::uint32_t> word_{0};  // state in the low byte, result above it
    std::atomic<std::uint32_t> references_{1};
    std::atomic<std::uint64_t> transferred_{0};
};

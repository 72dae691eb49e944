#pragma once

#include <atomic>
#include <cstdint>

#include <engine/filesystem/request.h>
#include <engine/kernel/multithreading.h>

struct IOQueueItem;

/// The layout behind SFsRequest. State and result change together, in one atomic word, so that whoever sees FINISHED
/// sees the result that goes with it.
class Request final : public SFsRequest {
public:
    Request(Callback callback, void* user);

    static Request& Of(SFsRequest* request) { return *static_cast<Request*>(request); }
    static const Request& Of(const SFsRequest* request) { return *static_cast<const Request*>(request); }

    void AddReference() { references_.fetch_add(1, std::memory_order_relaxed); }
    void ReleaseReference();

    EFSRequestState::TYPE State() const;
    EFSRequestResult::TYPE Result() const;
    /// 0 also for a request that was cancelled after it had been read.
    std::uint64_t Transferred() const {
        return Result() == EFSRequestResult::SUCCESS ? transferred_.load(std::memory_order_relaxed) : 0;
    }
    bool Wait(std::uint32_t timeout_ms) { return event_.Wait(timeout_ms); }

    /// Makes an idle or finished request a queued one. False while it is on its way already.
    bool BeginQueued();
    /// From QUEUED to IN_PROGRESS; returns the state found.
    EFSRequestState::TYPE BeginProgress();
    /// From IN_PROGRESS to FINISHED with this result; returns the state found. Signals nothing.
    EFSRequestState::TYPE Finish(EFSRequestResult::TYPE result, std::uint64_t transferred);
    /// To FINISHED and CANCELLED from whatever state, which is returned. Signals nothing.
    EFSRequestState::TYPE Cancel();
    /// To FINISHED and SUCCESS without a read.
    void FinishEmpty();
    /// Sets the event, then calls the callback.
    void Signal();

    IOQueueItem* queued_item = nullptr;  // guarded by the queue's lock; null unless QUEUED

private:
    ~Request() = default;

    const Callback callback_;
    void* const user_;
    mt::CEvent event_;
    std::atomic<std::uint32_t> word_{0};  // state in the low byte, result above it
    std::atomic<std::uint32_t> references_{1};
    std::atomic<std::uint64_t> transferred_{0};
};

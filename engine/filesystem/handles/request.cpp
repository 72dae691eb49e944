#include "engine/filesystem/handles/request.h"

#include "engine/filesystem/contract/failure.h"

void Request::BeginQueued() {
    was_queued_.store(true, std::memory_order_relaxed);
    if (State() == EFSRequestState::FINISHED) event_.Reset();
    status.Set(EFSRequestState::QUEUED);
}

void Request::FinishEmpty() {
    size = 0;
    status.Set(EFSRequestState::FINISHED);
}

void Request::Signal() {
    event_.Set();
    if (callback_ != nullptr) fs::guarded(nullptr, [this] { callback_(this, user_); });
}

SFsRequest* SFsRequest::Create(Callback callback, void* user) {
    return fs::guarded(nullptr, static_cast<Request*>(nullptr), [&] { return new Request(callback, user); });
}

void SFsRequest::AddRef() { Request::Of(this).references_.fetch_add(1, std::memory_order_relaxed); }

void SFsRequest::Release() {
    Request& request = Request::Of(this);
    if (request.references_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete &request;
}

bool SFsRequest::Wait(std::uint32_t timeout_ms) { return Request::Of(this).event_.Wait(timeout_ms); }
EFSRequestState::TYPE SFsRequest::State() const { return Request::Of(this).status.State(); }
EFSRequestResult::TYPE SFsRequest::Result() const { return Request::Of(this).status.Result(); }

/// 0 also for a request that was cancelled after it had been read.
std::uint64_t SFsRequest::Transferred() const {
    const Request& request = Request::Of(this);
    return request.status.HasSucceeded() ? request.size.load() : 0;
}

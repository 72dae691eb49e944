#include "engine/filesystem/handles/request.h"

#include "engine/filesystem/contract/guarded.h"

void Request::ReleaseReference() {
    if (references_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
}

/// 0 also for a request that was cancelled after it had been read.
std::uint64_t Request::Transferred() const {
    return Result() == EFSRequestResult::SUCCESS ? transferred_.load(std::memory_order_relaxed) : 0;
}

bool Request::IsFree() const {
    const EFSRequestState::TYPE state = State();
    return state != EFSRequestState::QUEUED && state != EFSRequestState::IN_PROGRESS &&
           !is_being_read_.load(std::memory_order_acquire);
}

void Request::BeginQueued() {
    transferred_.store(0, std::memory_order_relaxed);
    if (State() == EFSRequestState::FINISHED) event_.Reset();
    status_.Set(EFSRequestState::QUEUED, EFSRequestResult::SUCCESS);
}

void Request::BeginProgress(bool cancelled) {
    is_being_read_.store(!cancelled, std::memory_order_relaxed);
    if (cancelled)
        Cancel();
    else
        status_.Set(EFSRequestState::IN_PROGRESS, EFSRequestResult::SUCCESS);
}

void Request::EndProgress(EFSRequestResult::TYPE result, std::uint64_t transferred) {
    transferred_.store(transferred, std::memory_order_relaxed);
    is_being_read_.store(false, std::memory_order_release);
    status_.EndProgress(result);
}

void Request::FinishEmpty() {
    transferred_.store(0, std::memory_order_relaxed);
    status_.Set(EFSRequestState::FINISHED, EFSRequestResult::SUCCESS);
}

void Request::Signal() {
    event_.Set();
    if (callback_ != nullptr) callback_(this, user_);
}

SFsRequest* SFsRequest::Create(Callback callback, void* user) {
    return fs::guarded(nullptr, static_cast<Request*>(nullptr), [&] { return new Request(callback, user); });
}

void SFsRequest::AddRef() { Request::Of(this).AddReference(); }
void SFsRequest::Release() { Request::Of(this).ReleaseReference(); }
bool SFsRequest::Wait(std::uint32_t timeout_ms) { return Request::Of(this).Wait(timeout_ms); }
EFSRequestState::TYPE SFsRequest::State() const { return Request::Of(this).State(); }
EFSRequestResult::TYPE SFsRequest::Result() const { return Request::Of(this).Result(); }
std::uint64_t SFsRequest::Transferred() const { return Request::Of(this).Transferred(); }

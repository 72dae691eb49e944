#include "engine/filesystem/handles/request.h"

#include <new>

#include "engine/filesystem/contract/set_error.h"

void Request::ReleaseReference() {
    if (references_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
}

/// 0 also for a request that was cancelled after it had been read.
std::uint64_t Request::Transferred() const {
    return Result() == EFSRequestResult::SUCCESS ? transferred_.load(std::memory_order_relaxed) : 0;
}

bool Request::BeginQueued() {
    const EFSRequestState::TYPE state = State();
    if (state == EFSRequestState::QUEUED || state == EFSRequestState::IN_PROGRESS) return false;
    transferred_.store(0, std::memory_order_relaxed);
    if (state == EFSRequestState::FINISHED) event_.Reset();
    Set(EFSRequestState::QUEUED, EFSRequestResult::SUCCESS);
    return true;
}

void Request::Set(EFSRequestState::TYPE state, EFSRequestResult::TYPE result) {
    const auto high = static_cast<std::uint32_t>(result) << 8;
    word_.store(high | static_cast<std::uint32_t>(state), std::memory_order_release);
}

void Request::BeginProgress(bool cancelled) {
    if (cancelled)
        Cancel();
    else
        Set(EFSRequestState::IN_PROGRESS, EFSRequestResult::SUCCESS);
}

void Request::EndProgress(EFSRequestResult::TYPE result, std::uint64_t transferred) {
    if (State() != EFSRequestState::IN_PROGRESS) return;
    transferred_.store(transferred, std::memory_order_relaxed);
    Set(EFSRequestState::FINISHED, result);
}

void Request::FinishEmpty() {
    transferred_.store(0, std::memory_order_relaxed);
    Set(EFSRequestState::FINISHED, EFSRequestResult::SUCCESS);
}

EFSRequestState::TYPE Request::Cancel() {
    const EFSRequestState::TYPE found = State();
    Set(EFSRequestState::FINISHED, EFSRequestResult::CANCELLED);
    return found;
}

void Request::Signal() {
    event_.Set();
    if (callback_ != nullptr) callback_(this, user_);
}

SFsRequest* SFsRequest::Create(Callback callback, void* user) {
    Request* const request = new (std::nothrow) Request(callback, user);
    if (request == nullptr) fs::set_error(EFSError::OUT_OF_MEMORY, nullptr, "There is no memory for a request.");
    return request;
}

void SFsRequest::AddRef() { Request::Of(this).AddReference(); }
void SFsRequest::Release() { Request::Of(this).ReleaseReference(); }
bool SFsRequest::Wait(std::uint32_t timeout_ms) { return Request::Of(this).Wait(timeout_ms); }
EFSRequestState::TYPE SFsRequest::State() const { return Request::Of(this).State(); }
EFSRequestResult::TYPE SFsRequest::Result() const { return Request::Of(this).Result(); }
std::uint64_t SFsRequest::Transferred() const { return Request::Of(this).Transferred(); }

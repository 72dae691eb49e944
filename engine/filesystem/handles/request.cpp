#include "engine/filesystem/handles/request.h"

#include "engine/filesystem/contract/guarded.h"

namespace {

constexpr std::uint32_t word_of(EFSRequestState::TYPE state, EFSRequestResult::TYPE result) {
    return static_cast<std::uint32_t>(state) | static_cast<std::uint32_t>(result) << 8;
}
constexpr EFSRequestState::TYPE state_of(std::uint32_t word) { return static_cast<EFSRequestState::TYPE>(word & 0xFF); }
constexpr EFSRequestResult::TYPE result_of(std::uint32_t word) {
    return static_cast<EFSRequestResult::TYPE>(word >> 8);
}

}  // namespace

EFSRequestState::TYPE Request::State() const { return state_of(word_.load(std::memory_order_acquire)); }
EFSRequestResult::TYPE Request::Result() const { return result_of(word_.load(std::memory_order_acquire)); }

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
    Set(EFSRequestState::QUEUED, EFSRequestResult::SUCCESS);
}

void Request::Set(EFSRequestState::TYPE state, EFSRequestResult::TYPE result) {
    word_.store(word_of(state, result), std::memory_order_release);
}

void Request::BeginProgress(bool cancelled) {
    is_being_read_.store(!cancelled, std::memory_order_relaxed);
    if (cancelled)
        Cancel();
    else
        Set(EFSRequestState::IN_PROGRESS, EFSRequestResult::SUCCESS);
}

void Request::EndProgress(EFSRequestResult::TYPE result, std::uint64_t transferred) {
    transferred_.store(transferred, std::memory_order_relaxed);
    std::uint32_t word = word_of(EFSRequestState::IN_PROGRESS, EFSRequestResult::SUCCESS);
    is_being_read_.store(false, std::memory_order_release);
    word_.compare_exchange_strong(word, word_of(EFSRequestState::FINISHED, result));
}

void Request::FinishEmpty() {
    transferred_.store(0, std::memory_order_relaxed);
    Set(EFSRequestState::FINISHED, EFSRequestResult::SUCCESS);
}

EFSRequestState::TYPE Request::Cancel() {
    return state_of(word_.exchange(word_of(EFSRequestState::FINISHED, EFSRequestResult::CANCELLED)));
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

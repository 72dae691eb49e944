#include "engine/filesystem/handles/request.h"

#include <new>

namespace {

constexpr std::uint32_t pack(EFSRequestState::TYPE state, EFSRequestResult::TYPE result) {
    return static_cast<std::uint32_t>(state) | (static_cast<std::uint32_t>(result) << 8);
}
constexpr EFSRequestState::TYPE state_of(std::uint32_t word) { return static_cast<EFSRequestState::TYPE>(word & 0xFF); }
constexpr EFSRequestResult::TYPE result_of(std::uint32_t word) {
    return static_cast<EFSRequestResult::TYPE>(word >> 8);
}

}  // namespace

Request::Request(Callback callback, void* user) : callback_(callback), user_(user), event_(true) {}

void Request::ReleaseReference() {
    if (references_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
}

EFSRequestState::TYPE Request::State() const { return state_of(word_.load(std::memory_order_acquire)); }
EFSRequestResult::TYPE Request::Result() const { return result_of(word_.load(std::memory_order_acquire)); }

bool Request::BeginQueued() {
    std::uint32_t word = word_.load(std::memory_order_acquire);
    do {
        const EFSRequestState::TYPE state = state_of(word);
        if (state == EFSRequestState::QUEUED || state == EFSRequestState::IN_PROGRESS) return false;
    } while (!word_.compare_exchange_weak(word, pack(EFSRequestState::QUEUED, EFSRequestResult::SUCCESS),
                                          std::memory_order_acq_rel, std::memory_order_acquire));
    transferred_.store(0, std::memory_order_relaxed);
    event_.Reset();
    return true;
}

EFSRequestState::TYPE Request::BeginProgress() {
    std::uint32_t word = pack(EFSRequestState::QUEUED, EFSRequestResult::SUCCESS);
    word_.compare_exchange_strong(word, pack(EFSRequestState::IN_PROGRESS, EFSRequestResult::SUCCESS),
                                  std::memory_order_acq_rel, std::memory_order_acquire);
    return state_of(word);
}

EFSRequestState::TYPE Request::Finish(EFSRequestResult::TYPE result, std::uint64_t transferred) {
    transferred_.store(transferred, std::memory_order_relaxed);
    std::uint32_t word = pack(EFSRequestState::IN_PROGRESS, EFSRequestResult::SUCCESS);
    if (!word_.compare_exchange_strong(word, pack(EFSRequestState::FINISHED, result), std::memory_order_acq_rel,
                                       std::memory_order_acquire))
        transferred_.store(0, std::memory_order_relaxed);
    return state_of(word);
}

EFSRequestState::TYPE Request::Cancel() {
    return state_of(
        word_.exchange(pack(EFSRequestState::FINISHED, EFSRequestResult::CANCELLED), std::memory_order_acq_rel));
}

void Request::FinishEmpty() {
    transferred_.store(0, std::memory_order_relaxed);
    word_.store(pack(EFSRequestState::FINISHED, EFSRequestResult::SUCCESS), std::memory_order_release);
}

void Request::Signal() {
    event_.Set();
    if (callback_ != nullptr) callback_(this, user_);
}

SFsRequest* SFsRequest::Create(Callback callback, void* user) { return new (std::nothrow) Request(callback, user); }

void SFsRequest::AddRef() { Request::Of(this).AddReference(); }
void SFsRequest::Release() { Request::Of(this).ReleaseReference(); }
bool SFsRequest::Wait(std::uint32_t timeout_ms) { return Request::Of(this).Wait(timeout_ms); }
EFSRequestState::TYPE SFsRequest::State() const { return Request::Of(this).State(); }
EFSRequestResult::TYPE SFsRequest::Result() const { return Request::Of(this).Result(); }
std::uint64_t SFsRequest::Transferred() const { return Request::Of(this).Transferred(); }

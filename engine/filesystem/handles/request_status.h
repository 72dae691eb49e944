#pragma once

#include <atomic>
#include <cstdint>

#include <engine/filesystem/request.h>

/// State and result of a request or a load in one atomic word, so that whoever sees FINISHED sees the result that goes with
/// it.
class RequestStatus {
public:
    explicit RequestStatus(EFSRequestState::TYPE state) : word_(word_of(state, EFSRequestResult::SUCCESS)) {}

    EFSRequestState::TYPE State() const { return state_of(word_.load(std::memory_order_acquire)); }
    EFSRequestResult::TYPE Result() const {
        return static_cast<EFSRequestResult::TYPE>(word_.load(std::memory_order_acquire) >> 8);
    }
    bool HasSucceeded() const {
        return word_.load(std::memory_order_acquire) == word_of(EFSRequestState::FINISHED, EFSRequestResult::SUCCESS);
    }
    void Set(EFSRequestState::TYPE state, EFSRequestResult::TYPE result = EFSRequestResult::SUCCESS) {
        word_.store(word_of(state, result), std::memory_order_release);
    }
    /// From IN_PROGRESS to FINISHED with this result; from any other state nothing happens.
    void EndProgress(EFSRequestResult::TYPE result) {
        std::uint32_t word = word_of(EFSRequestState::IN_PROGRESS, EFSRequestResult::SUCCESS);
        word_.compare_exchange_strong(word, word_of(EFSRequestState::FINISHED, result));
    }
    /// To FINISHED and CANCELLED from whatever state, which is returned.
    EFSRequestState::TYPE Cancel() {
        return state_of(word_.exchange(word_of(EFSRequestState::FINISHED, EFSRequestResult::CANCELLED)));
    }

private:
    static constexpr std::uint32_t word_of(EFSRequestState::TYPE state, EFSRequestResult::TYPE result) {
        return static_cast<std::uint32_t>(state) | static_cast<std::uint32_t>(result) << 8;
    }
    static constexpr EFSRequestState::TYPE state_of(std::uint32_t word) {
        return static_cast<EFSRequestState::TYPE>(word & 0xFF);
    }

    std::atomic<std::uint32_t> word_;  // state in the low byte, result above it
};

#pragma once

#include <engine/kernel/thread_annotations.h>
#include <chrono>
#include <mutex>
#if !defined(_WIN32)
#include <condition_variable>
#endif

/// What the library's own locks are made of; not for callers, who have the classes of multithreading.h. Both are used as the
/// standard's classes of these names are. On Windows those would take memory when they are first used, and so could fail.
namespace mt::detail {

class ENGINE_CAPABILITY("mutex") Mutex {
public:
    constexpr Mutex() = default;
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    void lock() ENGINE_ACQUIRE();
    bool try_lock() ENGINE_TRY_ACQUIRE(true);
    void unlock() ENGINE_RELEASE();

private:
    friend class ConditionVariable;
#if defined(_WIN32)
    void* state_ = nullptr;  // an SRWLOCK
#else
    std::mutex mutex_;
#endif
};

class ConditionVariable {
public:
    ConditionVariable() = default;
    ConditionVariable(const ConditionVariable&) = delete;
    ConditionVariable& operator=(const ConditionVariable&) = delete;

    void notify_one() noexcept;
    void notify_all() noexcept;
    void wait(std::unique_lock<Mutex>& guard);
    template <typename Ready>
    void wait(std::unique_lock<Mutex>& guard, Ready ready) {
        while (!ready()) wait(guard);
    }
    /// What `ready` says in the end, at the latest after `time`.
    template <typename Ready>
    bool wait_for(std::unique_lock<Mutex>& guard, std::chrono::milliseconds time, Ready ready) {
        const auto end = std::chrono::steady_clock::now() + time;
        while (!ready()) {
            const auto now = std::chrono::steady_clock::now();
            if (now >= end) return false;
            wait_at_most(guard, std::chrono::ceil<std::chrono::milliseconds>(end - now));
        }
        return true;
    }

private:
    void wait_at_most(std::unique_lock<Mutex>& guard, std::chrono::milliseconds time);

#if defined(_WIN32)
    void* state_ = nullptr;  // a CONDITION_VARIABLE
#else
    std::condition_variable condition_;
#endif
};

}  // namespace mt::detail

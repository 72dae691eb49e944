#pragma once

#include <engine/kernel/thread_annotations.h>
#include <mutex>

namespace platform {

/// std::mutex and its guard, annotated, so that clang checks that what a mutex guards is touched under it alone. Where a
/// condition variable waits, the standard's own are used.
class ENGINE_CAPABILITY("mutex") Mutex {
public:
    void lock() ENGINE_ACQUIRE() { mutex_.lock(); }
    void unlock() ENGINE_RELEASE() { mutex_.unlock(); }

private:
    std::mutex mutex_;
};

class ENGINE_SCOPED_CAPABILITY LockGuard {
public:
    explicit LockGuard(Mutex& mutex) ENGINE_ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
    LockGuard(const LockGuard&) = delete;
    LockGuard& operator=(const LockGuard&) = delete;
    ~LockGuard() ENGINE_RELEASE() { mutex_.unlock(); }

private:
    Mutex& mutex_;
};

}  // namespace platform

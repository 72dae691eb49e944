#pragma once

#include <engine/kernel/lock.h>

namespace platform {

using mt::detail::ConditionVariable;
using mt::detail::Mutex;

/// Annotated, unlike the standard's guards, so that clang checks that what a mutex guards is touched under it alone. Where
/// a condition variable waits, the standard's own are used.
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

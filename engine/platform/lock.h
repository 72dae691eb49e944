#pragma once

#include <mutex>

/// std::mutex and its guard with the marks by which clang checks (-Wthread-safety) that what a mutex guards is touched
/// under it alone. Other compilers see the bare classes. Where a condition variable waits, the standard's own are used.

#if defined(__clang__)
#define ENGINE_THREAD_MARK(mark) __attribute__((mark))
#else
#define ENGINE_THREAD_MARK(mark)
#endif

#define GUARDED_BY(mutex) ENGINE_THREAD_MARK(guarded_by(mutex))         // a field: read and written under the lock
#define REQUIRES(mutex) ENGINE_THREAD_MARK(requires_capability(mutex))  // a function: called under the lock
#define UNCHECKED_LOCKS ENGINE_THREAD_MARK(no_thread_safety_analysis)   // a function: its comment says why it is right

namespace platform {

class ENGINE_THREAD_MARK(capability("mutex")) Mutex : public std::mutex {
public:
    void lock() ENGINE_THREAD_MARK(acquire_capability()) UNCHECKED_LOCKS { std::mutex::lock(); }
    void unlock() ENGINE_THREAD_MARK(release_capability()) UNCHECKED_LOCKS { std::mutex::unlock(); }
};

class ENGINE_THREAD_MARK(scoped_lockable) LockGuard {
public:
    explicit LockGuard(Mutex& mutex) ENGINE_THREAD_MARK(acquire_capability(mutex)) : mutex_(mutex) { mutex_.lock(); }
    LockGuard(const LockGuard&) = delete;
    LockGuard& operator=(const LockGuard&) = delete;
    ~LockGuard() ENGINE_THREAD_MARK(release_capability()) { mutex_.unlock(); }

private:
    Mutex& mutex_;
};

}  // namespace platform

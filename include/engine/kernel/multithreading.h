#pragma once

#include <engine/filesystem/api.h>
#include <engine/kernel/lock.h>
#include <atomic>
#include <cstdint>

/// Threads, the pointers that they keep to themselves, and what they wait for each other with.
///
/// None of these objects can be copied; only a thread can be moved. They report failure by their results and never
/// throw. Every method may be called from any thread unless it says otherwise. An object is destroyed when no call of
/// any thread is inside it any more.
namespace mt {

/// A wait without limit.
inline constexpr std::uint32_t FOREVER = 0xFFFFFFFFu;

/// One named thread, joined by the destructor at the latest.
///
/// Threads  the object belongs to one thread at a time, which is not the thread that it stands for.
class ENGINE_FS_API CThread {
public:
    using Entry = void (*)(void* argument);

    CThread() = default;
    CThread(CThread&& other) noexcept;
    CThread& operator=(CThread&& other) noexcept;  // joins what it stood for before
    ~CThread();

    /// Starts `entry(argument)` on a thread of its own, named `name` where the system shows names (null is no name).
    /// `priority` runs from -2 to 2, 0 is normal, and is cut to that; a raise that the system refuses is passed over.
    ///
    /// Returns  false when the object stands for a thread already, or when the system has none left.
    bool Start(const char* name, Entry entry, void* argument, int priority = 0);

    /// Waits until the thread has ended. Nothing to do when there is none.
    void Join();

    bool IsStarted() const { return thread_ != nullptr; }

    /// The system's number for the calling thread.
    static std::uint64_t CurrentId();

private:
    void* thread_ = nullptr;
};

/// One pointer for each thread, null at first. Its values are not freed: they belong to whoever set them.
///
/// Failure  without a free slot in the system IsValid is false, values are not kept and reading them gives null.
class ENGINE_FS_API CThreadLocal {
public:
    CThreadLocal();
    CThreadLocal(const CThreadLocal&) = delete;
    CThreadLocal& operator=(const CThreadLocal&) = delete;
    ~CThreadLocal();

    bool IsValid() const { return slot_ != nullptr; }
    void* Get() const;
    void Set(void* value);

private:
    void* slot_;
};

/// The same for pointers to `T`.
template <typename T>
class CThreadLocalPointer {
public:
    bool IsValid() const { return slot_.IsValid(); }
    T* Get() const { return static_cast<T*>(slot_.Get()); }
    void Set(T* value) { slot_.Set(value); }

private:
    CThreadLocal slot_;
};

/// Mutual exclusion that its owner may enter again; it is left as often as it was entered. For std::lock_guard and its
/// kin.
class ENGINE_FS_API ENGINE_CAPABILITY("mutex") CCriticalSection {
public:
    CCriticalSection();
    CCriticalSection(const CCriticalSection&) = delete;
    CCriticalSection& operator=(const CCriticalSection&) = delete;
    ~CCriticalSection();

    void lock() ENGINE_ACQUIRE();
    bool try_lock() ENGINE_TRY_ACQUIRE(true);  // does not wait
    void unlock() ENGINE_RELEASE();

private:
    detail::Mutex mutex_;
    std::atomic<std::uint64_t> owner_{0};  // 0: nobody
    std::uint32_t depth_ = 0;              // the owner's
};

/// A lock that many share or one has to itself, for std::shared_lock, std::lock_guard and their kin. A waiting writer
/// goes before new readers, so one thread must not take it twice in any form.
class ENGINE_FS_API ENGINE_CAPABILITY("shared_mutex") CSlimLock {
public:
    CSlimLock();
    CSlimLock(const CSlimLock&) = delete;
    CSlimLock& operator=(const CSlimLock&) = delete;
    ~CSlimLock();

    void lock() ENGINE_ACQUIRE();
    bool try_lock() ENGINE_TRY_ACQUIRE(true);  // does not wait
    void unlock() ENGINE_RELEASE();
    void lock_shared() ENGINE_ACQUIRE_SHARED();
    void unlock_shared() ENGINE_RELEASE_SHARED();

private:
    bool TryShared(std::uint32_t obstacles);
    void StopWaiting();
    void WakeWaiting();

    std::atomic<std::uint32_t> state_{0};  // who has the lock, and whether somebody waits for it
    detail::Mutex mutex_;                  // guards the counts
    detail::ConditionVariable changed_;
    std::uint32_t waiting_readers_ = 0;
    std::uint32_t waiting_writers_ = 0;
};

/// A signal that threads wait for. With manual reset it stays until Reset and lets everybody through; otherwise each
/// signal lets one waiter through. Who waits at the time of Set is let through, whatever follows.
class ENGINE_FS_API CEvent {
public:
    explicit CEvent(bool manual_reset, bool signalled = false);
    CEvent(const CEvent&) = delete;
    CEvent& operator=(const CEvent&) = delete;
    ~CEvent();

    void Set();
    void Reset();
    /// False when `timeout_ms` passed first.
    bool Wait(std::uint32_t timeout_ms = FOREVER);

private:
    const bool manual_reset_;
    bool signalled_;
    std::uint32_t generation_ = 0;  // how often it was set
    std::uint32_t waiting_ = 0;
    std::uint32_t released_ = 0;  // how many of those who wait an automatic event lets through
    detail::Mutex mutex_;         // guards all of these
    detail::ConditionVariable changed_;
};

/// A count that never passes its maximum; each wait takes one from it, as soon as there is one.
///
/// Failure  IsValid is false when the maximum is 0 or above 2^31 - 1, or when the initial count is above it; Release and
///          Wait then answer false at once.
class ENGINE_FS_API CSemaphore {
public:
    CSemaphore(std::uint32_t initial, std::uint32_t maximum);
    CSemaphore(const CSemaphore&) = delete;
    CSemaphore& operator=(const CSemaphore&) = delete;
    ~CSemaphore();

    bool IsValid() const { return maximum_ != 0; }
    /// False, with nothing changed, when `count` is 0 or the maximum would be passed.
    bool Release(std::uint32_t count = 1);
    /// False when `timeout_ms` passed first.
    bool Wait(std::uint32_t timeout_ms = FOREVER);

private:
    const std::uint32_t maximum_;
    std::uint32_t count_;
    detail::Mutex mutex_;  // guards the count
    detail::ConditionVariable changed_;
};

}  // namespace mt

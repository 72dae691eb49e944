#pragma once

#include <engine/filesystem/api.h>
#include <cstddef>
#include <cstdint>

/// Threads, the pointers that they keep to themselves, and what they wait for each other with.
///
/// None of these objects can be copied; only a thread can be moved. Each waits and wakes without help of the others,
/// reports failure by its results and never throws. Every method may be called from any thread unless it says
/// otherwise; an object is destroyed when nobody uses or waits for it any more.
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

/// Mutual exclusion that its owner may enter again; it is left as often as it was entered.
class ENGINE_FS_API CCriticalSection {
public:
    CCriticalSection();
    CCriticalSection(const CCriticalSection&) = delete;
    CCriticalSection& operator=(const CCriticalSection&) = delete;
    ~CCriticalSection();

    void Enter();
    bool TryEnter();  // does not wait
    void Leave();

private:
    void* section_;
};

/// A lock of one word that many share or one has to itself. A waiting writer goes before new readers, so it must not
/// be taken twice by one thread in any form.
class ENGINE_FS_API CSlimLock {
public:
    CSlimLock();
    CSlimLock(const CSlimLock&) = delete;
    CSlimLock& operator=(const CSlimLock&) = delete;

    void LockShared();
    void UnlockShared();
    void LockExclusive();
    bool TryLockExclusive();  // does not wait
    void UnlockExclusive();

private:
    alignas(std::uint64_t) std::byte state_[sizeof(std::uint64_t)];
};

/// A signal that threads wait for. With manual reset it stays until Reset and lets everybody through; otherwise each
/// signal lets one waiter through.
///
/// Failure  without a free event in the system IsValid is false, and Wait answers false at once.
class ENGINE_FS_API CEvent {
public:
    explicit CEvent(bool manual_reset, bool signalled = false);
    CEvent(const CEvent&) = delete;
    CEvent& operator=(const CEvent&) = delete;
    ~CEvent();

    bool IsValid() const { return event_ != nullptr; }
    void Set();
    void Reset();
    /// False when `timeout_ms` passed first.
    bool Wait(std::uint32_t timeout_ms = FOREVER);

private:
    void* event_;
};

/// A count that never passes its maximum; each wait takes one from it, as soon as there is one.
///
/// Failure  IsValid is false when the maximum is 0 or above 2^31 - 1, when the initial count is above it, or when the
///          system has no semaphore left; Release and Wait then answer false at once.
class ENGINE_FS_API CSemaphore {
public:
    CSemaphore(std::uint32_t initial, std::uint32_t maximum);
    CSemaphore(const CSemaphore&) = delete;
    CSemaphore& operator=(const CSemaphore&) = delete;
    ~CSemaphore();

    bool IsValid() const { return semaphore_ != nullptr; }
    /// False, with nothing changed, when `count` is 0 or the maximum would be passed.
    bool Release(std::uint32_t count = 1);
    /// False when `timeout_ms` passed first.
    bool Wait(std::uint32_t timeout_ms = FOREVER);

private:
    void* semaphore_;
};

/// Holds a slim lock shared for as long as it lives.
class CSharedHold {
public:
    explicit CSharedHold(CSlimLock& lock) : lock_(lock) { lock_.LockShared(); }
    CSharedHold(const CSharedHold&) = delete;
    CSharedHold& operator=(const CSharedHold&) = delete;
    ~CSharedHold() { lock_.UnlockShared(); }

private:
    CSlimLock& lock_;
};

/// Holds a slim lock exclusive for as long as it lives.
class CExclusiveHold {
public:
    explicit CExclusiveHold(CSlimLock& lock) : lock_(lock) { lock_.LockExclusive(); }
    CExclusiveHold(const CExclusiveHold&) = delete;
    CExclusiveHold& operator=(const CExclusiveHold&) = delete;
    ~CExclusiveHold() { lock_.UnlockExclusive(); }

private:
    CSlimLock& lock_;
};

/// Stays inside a critical section for as long as it lives.
class CSectionHold {
public:
    explicit CSectionHold(CCriticalSection& section) : section_(section) { section_.Enter(); }
    CSectionHold(const CSectionHold&) = delete;
    CSectionHold& operator=(const CSectionHold&) = delete;
    ~CSectionHold() { section_.Leave(); }

private:
    CCriticalSection& section_;
};

}  // namespace mt

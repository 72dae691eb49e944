#pragma once

#include <engine/kernel/lock.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <new>
#include <type_traits>

/// Threads, the locks that they wait for, and what each keeps for itself.

namespace platform {

struct Thread;
/// Starts a thread. `priority` runs from -2 (lowest) to 2 (highest normal), 0 normal; where the system refuses a raise
/// the thread runs at the normal one. The name is shown by debuggers (cut to what the system holds). Null on failure.
Thread* start_thread(const char* name, int priority, void (*entry)(void* argument), void* argument);
/// Waits for its end and frees it.
void join_thread(Thread* thread);
/// The system's number for the calling thread.
std::uint64_t current_thread_id();
/// Tells the calling thread from the others that live, without asking the system; never 0.
std::uint64_t current_thread_key();

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

/// For the state of a subsystem that the last callers of the process still use: as a static variable of a function it is
/// made at its first use and never destroyed.
template <typename T>
union NeverDestroyed {
    NeverDestroyed() : value() {}
    ~NeverDestroyed() {}  // NOLINT(modernize-use-equals-default): a default one would be deleted
    T value;
};
/// The only one of this type in the process.
template <typename T>
T& never_destroyed() {
    static NeverDestroyed<T> instance;
    return instance.value;
}

/// The system's number of a slot in which each thread keeps one pointer, null at first; no_slot when none is left.
std::uint32_t create_thread_slot();
inline constexpr std::uint32_t no_slot = 0xFFFF'FFFF;
void destroy_thread_slot(std::uint32_t slot);
void* get_thread_value(std::uint32_t slot);
void set_thread_value(std::uint32_t slot, void* value);

// What follows stands in place of thread_local: on Windows that takes memory at a thread's first use, and the run-time
// library ends the process when there is none.

#if defined(_WIN32)
/// A word of each thread in a slot of the system, which is taken with the first word that is set. The process has 64 slots
/// that take no memory; words in later ones may be lost.
class ThreadWord {
public:
    operator std::uintptr_t() const;  // NOLINT(google-explicit-constructor): it stands for its value
    void operator=(std::uintptr_t word);

private:
    std::atomic<std::uint32_t> slot_{no_slot};
};

/// A block of each thread, which is freed at its end; for all threads when the slot goes.
class ThreadBlock {
public:
    explicit ThreadBlock(void (*free)(void* block));
    ThreadBlock(const ThreadBlock&) = delete;
    ThreadBlock& operator=(const ThreadBlock&) = delete;
    ~ThreadBlock();
    void* get() const;
    /// False without memory; the block stays the caller's then.
    bool set(void* block);

private:
    std::uint32_t slot_;
};
#endif

/// A number, flag or pointer of each thread, zero at first. There is one for each `Tag`.
template <typename Value, typename Tag>
class PerThread {
public:
    constexpr PerThread() = default;
    PerThread(const PerThread&) = delete;
    PerThread& operator=(const PerThread&) = delete;

    operator Value() const {  // NOLINT(google-explicit-constructor): it stands for its value
        Value value;
        const std::uintptr_t word = word_;
        std::memcpy(static_cast<void*>(&value), &word, sizeof value);
        return value;
    }
    PerThread& operator=(Value value) {
        std::uintptr_t word = 0;
        std::memcpy(&word, &value, sizeof value);
        word_ = word;
        return *this;
    }
    Value operator++() { return *this = static_cast<Value>(*this + 1); }
    Value operator--() { return *this = static_cast<Value>(*this - 1); }

private:
    static_assert(std::is_trivially_copyable_v<Value> && sizeof(Value) <= sizeof(std::uintptr_t));
#if defined(_WIN32)
    static inline constinit ThreadWord word_;
#else
    static inline constinit thread_local std::uintptr_t word_ = 0;
#endif
};

/// An object of each thread, made when it is first needed and destroyed at the thread's end. Static objects are destroyed
/// later than that of the main thread, and may ask still.
template <typename T>
class ThreadObject {
public:
    /// Null when the thread has none, or none any more.
    static T* find() {
#if defined(_WIN32)
        return static_cast<T*>(block().get());
#else
        return make();
#endif
    }
    /// Null when there is no memory for it, or it was destroyed already.
    static T* make() {
#if defined(_WIN32)
        if (T* const object = find()) return object;
        T* const object = new (std::nothrow) T();
        if (object == nullptr || block().set(object)) return object;
        delete object;
        return nullptr;
#else
        static constinit thread_local bool is_gone = false;
        struct Owned {
            T object{};
            ~Owned() { is_gone = true; }
        };
        if (is_gone) return nullptr;
        static thread_local Owned owned;
        return &owned.object;
#endif
    }

private:
#if defined(_WIN32)
    static ThreadBlock& block() {
        static ThreadBlock instance([](void* object) { delete static_cast<T*>(object); });
        return instance;
    }
#endif
};

}  // namespace platform

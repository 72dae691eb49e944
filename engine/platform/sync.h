#pragma once

#include <atomic>
#include <cstdint>

namespace platform {

inline constexpr std::uint32_t wait_forever = 0xFFFFFFFFu;

/// A slim reader-writer lock: the size of a pointer, zero-initialised, never recursive, no thread owns it.
/// A waiting writer goes before new readers.
struct SlimLock {
    std::atomic<std::uint64_t> state{0};
};
void lock_shared(SlimLock& lock);
void unlock_shared(SlimLock& lock);
void lock_exclusive(SlimLock& lock);
void unlock_exclusive(SlimLock& lock);
bool try_lock_exclusive(SlimLock& lock);

/// Holds a slim lock for as long as it lives.
class SharedHold {
public:
    explicit SharedHold(SlimLock& lock) : lock_(lock) { lock_shared(lock_); }
    SharedHold(const SharedHold&) = delete;
    SharedHold& operator=(const SharedHold&) = delete;
    ~SharedHold() { unlock_shared(lock_); }

private:
    SlimLock& lock_;
};
class ExclusiveHold {
public:
    explicit ExclusiveHold(SlimLock& lock) : lock_(lock) { lock_exclusive(lock_); }
    ExclusiveHold(const ExclusiveHold&) = delete;
    ExclusiveHold& operator=(const ExclusiveHold&) = delete;
    ~ExclusiveHold() { unlock_exclusive(lock_); }

private:
    SlimLock& lock_;
};

/// Recursive mutual exclusion. The object is created and destroyed through these calls and never null.
struct CriticalSection;
CriticalSection* create_critical_section() noexcept;
void destroy_critical_section(CriticalSection* section);
void enter(CriticalSection* section);
bool try_enter(CriticalSection* section);
void leave(CriticalSection* section);

struct Event;
/// Null when the system has none left.
Event* create_event(bool manual_reset, bool signalled);
void destroy_event(Event* event);
void set_event(Event* event);
void reset_event(Event* event);
/// False when `timeout_ms` passed first.
bool wait_event(Event* event, std::uint32_t timeout_ms);

struct Semaphore;
Semaphore* create_semaphore(std::uint32_t initial, std::uint32_t maximum);
void destroy_semaphore(Semaphore* semaphore);
/// False, with nothing changed, when the maximum would be passed.
bool release_semaphore(Semaphore* semaphore, std::uint32_t count);
bool wait_semaphore(Semaphore* semaphore, std::uint32_t timeout_ms);

struct Thread;
/// Starts a thread. `priority` runs from -2 (lowest) to 2 (highest normal), 0 normal; where the system refuses a raise
/// the thread runs at the normal one. The name is shown by debuggers (cut to what the system holds). Null on failure.
Thread* start_thread(const char* name, int priority, void (*entry)(void* argument), void* argument);
/// Waits for its end and frees it.
void join_thread(Thread* thread);
std::uint64_t current_thread_id();
void yield_thread();

/// A slot in which each thread keeps one pointer, null at first.
struct ThreadSlot;
ThreadSlot* create_thread_slot();
void destroy_thread_slot(ThreadSlot* slot);
void* get_thread_value(const ThreadSlot* slot);
void set_thread_value(ThreadSlot* slot, void* value);

}  // namespace platform

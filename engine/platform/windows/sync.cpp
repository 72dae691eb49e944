// Locks, events and semaphores are the system's own; an Event or Semaphore is its handle, so there are no objects of
// these types.
#include "engine/platform/sync.h"

#include <windows.h>

#include <cstdlib>
#include <new>

namespace platform {

namespace {

static_assert(sizeof(SlimLock) == sizeof(SRWLOCK) && alignof(SlimLock) >= alignof(SRWLOCK));

// Both are one word that is zero while nobody holds the lock.
PSRWLOCK to_srw(SlimLock& lock) { return reinterpret_cast<PSRWLOCK>(&lock); }

constexpr std::uint32_t largest_maximum = 0x7FFFFFFF;

bool wait_handle(HANDLE handle, std::uint32_t timeout_ms) {
    static_assert(wait_forever == INFINITE);
    return WaitForSingleObject(handle, timeout_ms) == WAIT_OBJECT_0;
}

}  // namespace

void lock_shared(SlimLock& lock) { AcquireSRWLockShared(to_srw(lock)); }
void unlock_shared(SlimLock& lock) { ReleaseSRWLockShared(to_srw(lock)); }
void lock_exclusive(SlimLock& lock) { AcquireSRWLockExclusive(to_srw(lock)); }
void unlock_exclusive(SlimLock& lock) { ReleaseSRWLockExclusive(to_srw(lock)); }
bool try_lock_exclusive(SlimLock& lock) { return TryAcquireSRWLockExclusive(to_srw(lock)) != 0; }

struct CriticalSection {
    CRITICAL_SECTION section;
};

// Never null by contract, so without memory for a lock the process ends here rather than run unlocked.
CriticalSection* create_critical_section() noexcept {
    auto* const section = new (std::nothrow) CriticalSection;
    if (section == nullptr) std::abort();
    InitializeCriticalSection(&section->section);
    return section;
}

void destroy_critical_section(CriticalSection* section) {
    DeleteCriticalSection(&section->section);
    delete section;
}

void enter(CriticalSection* section) { EnterCriticalSection(&section->section); }
bool try_enter(CriticalSection* section) { return TryEnterCriticalSection(&section->section) != 0; }
void leave(CriticalSection* section) { LeaveCriticalSection(&section->section); }

Event* create_event(bool manual_reset, bool signalled) {
    return static_cast<Event*>(CreateEventA(nullptr, manual_reset, signalled, nullptr));
}

void destroy_event(Event* event) { CloseHandle(event); }
void set_event(Event* event) { SetEvent(event); }
void reset_event(Event* event) { ResetEvent(event); }
bool wait_event(Event* event, std::uint32_t timeout_ms) { return wait_handle(event, timeout_ms); }

Semaphore* create_semaphore(std::uint32_t initial, std::uint32_t maximum) {
    if (maximum == 0 || maximum > largest_maximum || initial > maximum) return nullptr;
    return static_cast<Semaphore*>(
        CreateSemaphoreA(nullptr, static_cast<LONG>(initial), static_cast<LONG>(maximum), nullptr));
}

void destroy_semaphore(Semaphore* semaphore) { CloseHandle(semaphore); }

bool release_semaphore(Semaphore* semaphore, std::uint32_t count) {
    if (count == 0 || count > largest_maximum) return false;
    return ReleaseSemaphore(semaphore, static_cast<LONG>(count), nullptr) != 0;
}

bool wait_semaphore(Semaphore* semaphore, std::uint32_t timeout_ms) { return wait_handle(semaphore, timeout_ms); }

}  // namespace platform

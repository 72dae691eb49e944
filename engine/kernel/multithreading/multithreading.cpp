// The exported threading classes: each keeps one object of the platform behind an opaque pointer, so that callers need
// no header of the system, and adds ownership and the answers for an object that could not be had.
#include <engine/kernel/multithreading.h>

#include <algorithm>
#include <new>
#include <utility>

#include "engine/platform/sync.h"

namespace mt {

namespace {

platform::Thread* to_thread(void* thread) { return static_cast<platform::Thread*>(thread); }
platform::ThreadSlot* to_slot(void* slot) { return static_cast<platform::ThreadSlot*>(slot); }
platform::CriticalSection* to_section(void* section) { return static_cast<platform::CriticalSection*>(section); }
platform::Event* to_event(void* event) { return static_cast<platform::Event*>(event); }
platform::Semaphore* to_semaphore(void* semaphore) { return static_cast<platform::Semaphore*>(semaphore); }
platform::SlimLock& to_lock(std::byte* state) { return *std::launder(reinterpret_cast<platform::SlimLock*>(state)); }

static_assert(FOREVER == platform::wait_forever);
static_assert(sizeof(CSlimLock) == sizeof(platform::SlimLock) && alignof(CSlimLock) >= alignof(platform::SlimLock));

}  // namespace

CThread::CThread(CThread&& other) noexcept : thread_(std::exchange(other.thread_, nullptr)) {}

CThread& CThread::operator=(CThread&& other) noexcept {
    if (this == &other) return *this;
    Join();
    thread_ = std::exchange(other.thread_, nullptr);
    return *this;
}

CThread::~CThread() { Join(); }

bool CThread::Start(const char* name, Entry entry, void* argument, int priority) {
    if (thread_ != nullptr || entry == nullptr) return false;
    // Beyond these some systems have priorities of another kind, which keep everything else from running.
    thread_ = platform::start_thread(name == nullptr ? "" : name, std::clamp(priority, -2, 2), entry, argument);
    return thread_ != nullptr;
}

void CThread::Join() {
    if (thread_ != nullptr) platform::join_thread(to_thread(std::exchange(thread_, nullptr)));
}

std::uint64_t CThread::CurrentId() { return platform::current_thread_id(); }

CThreadLocal::CThreadLocal() : slot_(platform::create_thread_slot()) {}

CThreadLocal::~CThreadLocal() {
    if (slot_ != nullptr) platform::destroy_thread_slot(to_slot(slot_));
}

void* CThreadLocal::Get() const { return slot_ == nullptr ? nullptr : platform::get_thread_value(to_slot(slot_)); }

void CThreadLocal::Set(void* value) {
    if (slot_ != nullptr) platform::set_thread_value(to_slot(slot_), value);
}

CCriticalSection::CCriticalSection() : section_(platform::create_critical_section()) {}
CCriticalSection::~CCriticalSection() { platform::destroy_critical_section(to_section(section_)); }
void CCriticalSection::Enter() { platform::enter(to_section(section_)); }
bool CCriticalSection::TryEnter() { return platform::try_enter(to_section(section_)); }
void CCriticalSection::Leave() { platform::leave(to_section(section_)); }

CSlimLock::CSlimLock() { new (state_) platform::SlimLock; }
void CSlimLock::LockShared() { platform::lock_shared(to_lock(state_)); }
void CSlimLock::UnlockShared() { platform::unlock_shared(to_lock(state_)); }
void CSlimLock::LockExclusive() { platform::lock_exclusive(to_lock(state_)); }
bool CSlimLock::TryLockExclusive() { return platform::try_lock_exclusive(to_lock(state_)); }
void CSlimLock::UnlockExclusive() { platform::unlock_exclusive(to_lock(state_)); }

CEvent::CEvent(bool manual_reset, bool signalled) : event_(platform::create_event(manual_reset, signalled)) {}

CEvent::~CEvent() {
    if (event_ != nullptr) platform::destroy_event(to_event(event_));
}

void CEvent::Set() {
    if (event_ != nullptr) platform::set_event(to_event(event_));
}

void CEvent::Reset() {
    if (event_ != nullptr) platform::reset_event(to_event(event_));
}

bool CEvent::Wait(std::uint32_t timeout_ms) {
    return event_ != nullptr && platform::wait_event(to_event(event_), timeout_ms);
}

CSemaphore::CSemaphore(std::uint32_t initial, std::uint32_t maximum)
    : semaphore_(platform::create_semaphore(initial, maximum)) {}

CSemaphore::~CSemaphore() {
    if (semaphore_ != nullptr) platform::destroy_semaphore(to_semaphore(semaphore_));
}

bool CSemaphore::Release(std::uint32_t count) {
    return semaphore_ != nullptr && platform::release_semaphore(to_semaphore(semaphore_), count);
}

bool CSemaphore::Wait(std::uint32_t timeout_ms) {
    return semaphore_ != nullptr && platform::wait_semaphore(to_semaphore(semaphore_), timeout_ms);
}

}  // namespace mt

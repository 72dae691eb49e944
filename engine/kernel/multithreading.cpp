// The exported threading classes. Threads and their pointers are the system's; all that they wait for each other with is
// a mutex and a condition variable.
#include <engine/kernel/multithreading.h>

#include <algorithm>
#include <chrono>
#include <utility>

#include "engine/platform/threads.h"

namespace mt {

namespace {

platform::Thread* to_thread(void* thread) { return static_cast<platform::Thread*>(thread); }

// A slot's number, one up, as the pointer that is null without a slot.
void* to_pointer(std::uint32_t slot) {
    return reinterpret_cast<void*>(slot == platform::no_slot ? 0 : std::uintptr_t{slot} + 1);
}
std::uint32_t to_slot(void* pointer) {
    return static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(pointer) - 1);
}

// The state of a slim lock: a writer's bit, or the number of readers; and whether threads wait, which sends everybody
// who comes or goes to the mutex.
constexpr std::uint32_t writer_inside = 0x8000'0000;
constexpr std::uint32_t somebody_waits = 0x4000'0000;

template <typename Ready>
bool wait_until(detail::ConditionVariable& changed, std::unique_lock<detail::Mutex>& guard, std::uint32_t timeout_ms,
                Ready ready) {
    if (timeout_ms != FOREVER) return changed.wait_for(guard, std::chrono::milliseconds(timeout_ms), ready);
    changed.wait(guard, ready);
    return true;
}

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

CThreadLocal::CThreadLocal() : slot_(to_pointer(platform::create_thread_slot())) {}

CThreadLocal::~CThreadLocal() {
    if (slot_ != nullptr) platform::destroy_thread_slot(to_slot(slot_));
}

void* CThreadLocal::Get() const { return slot_ == nullptr ? nullptr : platform::get_thread_value(to_slot(slot_)); }

void CThreadLocal::Set(void* value) {
    if (slot_ != nullptr) platform::set_thread_value(to_slot(slot_), value);
}

CCriticalSection::CCriticalSection() = default;
CCriticalSection::~CCriticalSection() = default;

void CCriticalSection::lock() ENGINE_NOT_CHECKED {
    const std::uint64_t self = platform::current_thread_key();
    if (owner_.load(std::memory_order_relaxed) != self) {
        mutex_.lock();
        owner_.store(self, std::memory_order_relaxed);
    }
    ++depth_;
}

bool CCriticalSection::try_lock() ENGINE_NOT_CHECKED {
    const std::uint64_t self = platform::current_thread_key();
    if (owner_.load(std::memory_order_relaxed) != self) {
        if (!mutex_.try_lock()) return false;
        owner_.store(self, std::memory_order_relaxed);
    }
    ++depth_;
    return true;
}

void CCriticalSection::unlock() ENGINE_NOT_CHECKED {
    if (--depth_ != 0) return;
    owner_.store(0, std::memory_order_relaxed);
    mutex_.unlock();
}

// While nobody waits, taking and giving back is one step on the state. A waiter sets its bit before it looks for the
// last time, and whoever gives the lock back and finds the bit passes through the mutex before it wakes: so the waiter
// has either seen the lock free or is asleep by then.
CSlimLock::CSlimLock() = default;
CSlimLock::~CSlimLock() = default;

bool CSlimLock::TryShared(std::uint32_t obstacles) {
    std::uint32_t state = state_.load(std::memory_order_relaxed);
    while ((state & obstacles) == 0) {
        if (state_.compare_exchange_weak(state, state + 1, std::memory_order_acquire, std::memory_order_relaxed))
            return true;
    }
    return false;
}

void CSlimLock::lock_shared() {
    if (TryShared(writer_inside | somebody_waits)) return;
    std::unique_lock guard(mutex_);
    ++waiting_readers_;
    state_.fetch_or(somebody_waits);
    changed_.wait(guard, [this] { return waiting_writers_ == 0 && TryShared(writer_inside); });
    --waiting_readers_;
    StopWaiting();
}

void CSlimLock::unlock_shared() {
    if (state_.fetch_sub(1) - 1 == somebody_waits) WakeWaiting();
}

bool CSlimLock::try_lock() {
    std::uint32_t state = state_.load(std::memory_order_relaxed) & somebody_waits;
    return state_.compare_exchange_strong(state, state | writer_inside, std::memory_order_acquire,
                                          std::memory_order_relaxed);
}

void CSlimLock::lock() {
    if (try_lock()) return;
    std::unique_lock guard(mutex_);
    ++waiting_writers_;
    state_.fetch_or(somebody_waits);
    changed_.wait(guard, [this] { return try_lock(); });
    --waiting_writers_;
    StopWaiting();
}

void CSlimLock::unlock() {
    if ((state_.fetch_sub(writer_inside) & somebody_waits) != 0) WakeWaiting();
}

/// Called with the mutex, by one who waited and has the lock now.
void CSlimLock::StopWaiting() {
    if (waiting_readers_ == 0 && waiting_writers_ == 0) state_.fetch_and(~somebody_waits);
}

void CSlimLock::WakeWaiting() {
    const std::lock_guard guard(mutex_);
    changed_.notify_all();
}

CEvent::CEvent(bool manual_reset, bool signalled) : manual_reset_(manual_reset), signalled_(signalled) {}
CEvent::~CEvent() = default;

void CEvent::Set() {
    const std::lock_guard guard(mutex_);
    ++generation_;
    if (manual_reset_) {
        signalled_ = true;
        changed_.notify_all();
    } else if (released_ < waiting_) {
        ++released_;
        changed_.notify_one();
    } else {
        signalled_ = true;
    }
}

void CEvent::Reset() {
    const std::lock_guard guard(mutex_);
    signalled_ = false;
}

bool CEvent::Wait(std::uint32_t timeout_ms) {
    std::unique_lock guard(mutex_);
    if (signalled_) {
        signalled_ = manual_reset_;
        return true;
    }
    // A signal that was given before belongs to one who waited by then and has not woken yet.
    const std::uint32_t before = generation_;
    ++waiting_;
    const bool passed = wait_until(changed_, guard, timeout_ms,
                                   [&] { return generation_ != before && (manual_reset_ || released_ != 0); });
    --waiting_;
    if (passed && !manual_reset_) --released_;
    return passed;
}

CSemaphore::CSemaphore(std::uint32_t initial, std::uint32_t maximum)
    : maximum_(maximum > 0x7FFF'FFFF || initial > maximum ? 0 : maximum), count_(initial) {}
CSemaphore::~CSemaphore() = default;

bool CSemaphore::Release(std::uint32_t count) {
    const std::lock_guard guard(mutex_);
    if (!IsValid() || count == 0 || count > maximum_ - count_) return false;
    count_ += count;
    if (count == 1)
        changed_.notify_one();
    else
        changed_.notify_all();
    return true;
}

bool CSemaphore::Wait(std::uint32_t timeout_ms) {
    if (!IsValid()) return false;
    std::unique_lock guard(mutex_);
    if (!wait_until(changed_, guard, timeout_ms, [this] { return count_ != 0; })) return false;
    --count_;
    return true;
}

}  // namespace mt

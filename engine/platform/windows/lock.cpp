#include "engine/platform/lock.h"

#include <windows.h>

#include <algorithm>

namespace mt::detail {
namespace {

static_assert(sizeof(SRWLOCK) == sizeof(void*) && sizeof(CONDITION_VARIABLE) == sizeof(void*));
SRWLOCK* to_lock(void*& state) { return reinterpret_cast<SRWLOCK*>(&state); }
CONDITION_VARIABLE* to_condition(void*& state) { return reinterpret_cast<CONDITION_VARIABLE*>(&state); }

}  // namespace

void Mutex::lock() { AcquireSRWLockExclusive(to_lock(state_)); }
bool Mutex::try_lock() { return TryAcquireSRWLockExclusive(to_lock(state_)) != 0; }
void Mutex::unlock() { ReleaseSRWLockExclusive(to_lock(state_)); }

void ConditionVariable::notify_one() noexcept { WakeConditionVariable(to_condition(state_)); }
void ConditionVariable::notify_all() noexcept { WakeAllConditionVariable(to_condition(state_)); }

void ConditionVariable::wait(std::unique_lock<Mutex>& guard) {
    SleepConditionVariableSRW(to_condition(state_), to_lock(guard.mutex()->state_), INFINITE, 0);
}

void ConditionVariable::wait_at_most(std::unique_lock<Mutex>& guard, std::chrono::milliseconds time) {
    const auto ms = static_cast<DWORD>(std::min<std::int64_t>(time.count(), INFINITE - 1));
    SleepConditionVariableSRW(to_condition(state_), to_lock(guard.mutex()->state_), ms, 0);
}

}  // namespace mt::detail

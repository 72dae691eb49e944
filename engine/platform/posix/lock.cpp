#include "engine/platform/lock.h"

namespace mt::detail {

void Mutex::lock() { mutex_.lock(); }
bool Mutex::try_lock() { return mutex_.try_lock(); }
void Mutex::unlock() { mutex_.unlock(); }

void ConditionVariable::notify_one() noexcept { condition_.notify_one(); }
void ConditionVariable::notify_all() noexcept { condition_.notify_all(); }

// The standard's guard of the same mutex waits, and gives it back locked.

void ConditionVariable::wait(std::unique_lock<Mutex>& guard) {
    std::unique_lock adopted(guard.mutex()->mutex_, std::adopt_lock);
    condition_.wait(adopted);
    adopted.release();
}

void ConditionVariable::wait_at_most(std::unique_lock<Mutex>& guard, std::chrono::milliseconds time) {
    std::unique_lock adopted(guard.mutex()->mutex_, std::adopt_lock);
    condition_.wait_for(adopted, time);
    adopted.release();
}

}  // namespace mt::detail

#include "engine/platform/lock.h"

namespace mt::detail {
namespace {

/// The standard's guard of the same mutex, for a wait.
class Adopted {
public:
    explicit Adopted(std::mutex& mutex) : guard(mutex, std::adopt_lock) {}
    Adopted(const Adopted&) = delete;
    Adopted& operator=(const Adopted&) = delete;
    ~Adopted() { guard.release(); }
    std::unique_lock<std::mutex> guard;
};

}  // namespace

void Mutex::lock() { mutex_.lock(); }
bool Mutex::try_lock() { return mutex_.try_lock(); }
void Mutex::unlock() { mutex_.unlock(); }

void ConditionVariable::notify_one() noexcept { condition_.notify_one(); }
void ConditionVariable::notify_all() noexcept { condition_.notify_all(); }

void ConditionVariable::wait(std::unique_lock<Mutex>& guard) {
    Adopted adopted(guard.mutex()->mutex_);
    condition_.wait(adopted.guard);
}

void ConditionVariable::wait_at_most(std::unique_lock<Mutex>& guard, std::chrono::milliseconds time) {
    Adopted adopted(guard.mutex()->mutex_);
    condition_.wait_for(adopted.guard, time);
}

}  // namespace mt::detail

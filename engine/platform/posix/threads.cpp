// Threads, their slots, and the locks of the standard library.
#include "engine/platform/threads.h"

#include <pthread.h>

#include <cstdio>
#include <memory>
#include <new>

#include "engine/platform/crash.h"
#include "engine/platform/error.h"
#include "engine/platform/linux/process.h"

namespace platform {

struct Thread {
    pthread_t handle{};
    char name[thread_name_size] = "";
    int priority = 0;
    void (*entry)(void* argument) = nullptr;
    void* argument = nullptr;
};

namespace {

constexpr int nice_step = -5;  // for each step of priority

void* run_thread(void* argument) {
    const Thread& thread = *static_cast<const Thread*>(argument);
    const CrashStack stack;
    name_this_thread(thread.name);
    if (thread.priority != 0) add_nice_to_this_thread(thread.priority * nice_step);
    thread.entry(thread.argument);
    return nullptr;
}

}  // namespace

Thread* start_thread(const char* name, int priority, void (*entry)(void* argument), void* argument) {
    if (fault_at(FaultPoint::THREAD)) return nullptr;
    std::unique_ptr<Thread> thread(new (std::nothrow)
                                       Thread{.priority = priority, .entry = entry, .argument = argument});
    if (thread == nullptr) return nullptr;
    std::snprintf(thread->name, sizeof thread->name, "%s", name);
    return pthread_create(&thread->handle, nullptr, run_thread, thread.get()) == 0 ? thread.release() : nullptr;
}

void join_thread(Thread* thread) {
    pthread_join(thread->handle, nullptr);
    delete thread;
}

std::uint64_t current_thread_key() {
    static thread_local char own;
    return reinterpret_cast<std::uintptr_t>(&own);
}

std::uint32_t create_thread_slot() {
    pthread_key_t slot{};
    return pthread_key_create(&slot, nullptr) == 0 ? slot : no_slot;
}
void destroy_thread_slot(std::uint32_t slot) { pthread_key_delete(slot); }
void* get_thread_value(std::uint32_t slot) { return pthread_getspecific(slot); }
void set_thread_value(std::uint32_t slot, void* value) { pthread_setspecific(slot, value); }

}  // namespace platform

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

#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <new>

#include "engine/platform/posix/crash/alternate_stack.h"
#include "engine/platform/threads.h"

namespace platform {

struct Thread {
    pthread_t handle{};
    std::array<char, 16> name{};  // what the kernel holds, terminator included
    int priority = 0;
    void (*entry)(void* argument) = nullptr;
    void* argument = nullptr;
};

namespace {

// A step of priority in units of the scheduler's "nice", which Linux keeps for each thread.
constexpr int nice_step = -5;

void set_own_priority(int priority) {
    if (priority == 0) return;
    const auto id = static_cast<id_t>(gettid());
    const int now = getpriority(PRIO_PROCESS, id);
    // A raise is refused without the privilege; the thread then runs at the normal priority, as promised.
    setpriority(PRIO_PROCESS, id, now + priority * nice_step);
}

void* run_thread(void* argument) {
    const Thread& thread = *static_cast<const Thread*>(argument);
    const AlternateStack stack;
    pthread_setname_np(pthread_self(), thread.name.data());
    set_own_priority(thread.priority);
    thread.entry(thread.argument);
    return nullptr;
}

}  // namespace

Thread* start_thread(const char* name, int priority, void (*entry)(void* argument), void* argument) {
    auto* const thread = new (std::nothrow) Thread{.priority = priority, .entry = entry, .argument = argument};
    if (thread == nullptr) return nullptr;
    std::snprintf(thread->name.data(), thread->name.size(), "%s", name);
    if (pthread_create(&thread->handle, nullptr, run_thread, thread) == 0) return thread;
    delete thread;
    return nullptr;
}

void join_thread(Thread* thread) {
    pthread_join(thread->handle, nullptr);
    delete thread;
}

std::uint64_t current_thread_id() { return static_cast<std::uint64_t>(gettid()); }

struct ThreadSlot {
    pthread_key_t key{};
};

ThreadSlot* create_thread_slot() {
    auto* const slot = new (std::nothrow) ThreadSlot;
    if (slot != nullptr && pthread_key_create(&slot->key, nullptr) == 0) return slot;
    delete slot;
    return nullptr;
}

void destroy_thread_slot(ThreadSlot* slot) {
    pthread_key_delete(slot->key);
    delete slot;
}

void* get_thread_value(const ThreadSlot* slot) { return pthread_getspecific(slot->key); }
void set_thread_value(ThreadSlot* slot, void* value) { pthread_setspecific(slot->key, value); }

}  // namespace platform

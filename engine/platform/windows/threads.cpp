// Threads, what each of them keeps, and the system's slim locks.
#include <algorithm>
#include <iterator>
#include <memory>
#include <new>
#include <string_view>
#include <utility>

#include "engine/platform/crash.h"
#include "engine/platform/error.h"
#include "engine/platform/threads.h"
#include "engine/platform/windows/system.h"

namespace platform {

struct Thread {
    Handle handle;
    void (*entry)(void* argument) = nullptr;
    void* argument = nullptr;
};

namespace {

DWORD WINAPI run_thread(void* argument) {
    const Thread& thread = *static_cast<const Thread*>(argument);
    const CrashStack stack;
    thread.entry(thread.argument);
    return 0;
}

// Systems before version 10 know no names of threads.
void set_name(HANDLE thread, std::string_view name) {
    using SetDescription = HRESULT(WINAPI*)(HANDLE, PCWSTR);
    const auto found = GetProcAddress(GetModuleHandleA("kernel32.dll"), "SetThreadDescription");
    const auto set_description = reinterpret_cast<SetDescription>(reinterpret_cast<void*>(found));
    wchar_t wide[64] = L"";
    to_wide(name.substr(0, std::size(wide) - 1), wide, std::size(wide));
    if (set_description != nullptr) set_description(thread, wide);
}

}  // namespace

Thread* start_thread(const char* name, int priority, void (*entry)(void* argument), void* argument) {
    if (fault_at(FaultPoint::THREAD)) return nullptr;
    std::unique_ptr<Thread> thread(new (std::nothrow) Thread{.handle = {}, .entry = entry, .argument = argument});
    if (thread == nullptr) return nullptr;
    // Suspended until it has its name and priority, so that no step of it runs without them.
    const HANDLE handle = CreateThread(nullptr, 0, run_thread, thread.get(), CREATE_SUSPENDED, nullptr);
    if (handle == nullptr) return nullptr;
    thread->handle = own(handle);
    set_name(handle, name);
    static_assert(THREAD_PRIORITY_LOWEST == -2 && THREAD_PRIORITY_HIGHEST == 2);
    SetThreadPriority(handle, priority);
    ResumeThread(handle);
    return thread.release();
}

void join_thread(Thread* thread) {
    WaitForSingleObject(thread->handle.get(), INFINITE);
    delete thread;
}

std::uint64_t current_thread_id() { return GetCurrentThreadId(); }
std::uint64_t current_thread_key() { return GetCurrentThreadId(); }

ThreadWord::operator std::uintptr_t() const {
    const std::uint32_t slot = slot_.load(std::memory_order_acquire);
    return slot == no_slot ? 0 : reinterpret_cast<std::uintptr_t>(TlsGetValue(slot));
}

void ThreadWord::operator=(std::uintptr_t word) {
    std::uint32_t slot = slot_.load(std::memory_order_acquire);
    if (slot == no_slot) {
        const DWORD taken = TlsAlloc();
        if (slot_.compare_exchange_strong(slot, taken)) {
            slot = taken;
        } else if (taken != no_slot) {
            TlsFree(taken);  // another thread was first
        }
    }
    TlsSetValue(slot, reinterpret_cast<void*>(word));
}

ThreadBlock::ThreadBlock(void (*free)(void* block)) : slot_(FlsAlloc(free)) {}
ThreadBlock::~ThreadBlock() { FlsFree(std::exchange(slot_, no_slot)); }
void* ThreadBlock::get() const { return slot_ == no_slot ? nullptr : FlsGetValue(slot_); }
bool ThreadBlock::set(void* block) { return slot_ != no_slot && FlsSetValue(slot_, block) != 0; }

static_assert(no_slot == TLS_OUT_OF_INDEXES);
std::uint32_t create_thread_slot() { return TlsAlloc(); }
void destroy_thread_slot(std::uint32_t slot) { TlsFree(slot); }
void* get_thread_value(std::uint32_t slot) { return TlsGetValue(slot); }
void set_thread_value(std::uint32_t slot, void* value) { TlsSetValue(slot, value); }

}  // namespace platform

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

#include <windows.h>

#include <array>
#include <new>
#include <utility>

#include "engine/platform/faults.h"
#include "engine/platform/per_thread.h"
#include "engine/platform/threads.h"
#include "engine/platform/windows/crash_stack.h"

namespace platform {

struct Thread {
    HANDLE handle = nullptr;
    void (*entry)(void* argument) = nullptr;
    void* argument = nullptr;
};

namespace {

DWORD WINAPI run_thread(void* argument) {
    const Thread& thread = *static_cast<const Thread*>(argument);
    reserve_stack_for_crash();
    thread.entry(thread.argument);
    return 0;
}

// Systems before version 10 know no names of threads.
void set_name(HANDLE thread, const char* name) {
    using SetDescription = HRESULT(WINAPI*)(HANDLE, PCWSTR);
    const HMODULE kernel = GetModuleHandleA("kernel32.dll");
    const auto set_description =
        reinterpret_cast<SetDescription>(reinterpret_cast<void*>(GetProcAddress(kernel, "SetThreadDescription")));
    std::array<wchar_t, 64> wide{};
    std::size_t length = 0;
    while (length < wide.size() - 1 && name[length] != '\0') {
        wide[length] = static_cast<unsigned char>(name[length]);
        ++length;
    }
    if (set_description != nullptr) set_description(thread, wide.data());
}

}  // namespace

Thread* start_thread(const char* name, int priority, void (*entry)(void* argument), void* argument) {
    if (fault_at(FaultPoint::THREAD)) return nullptr;
    auto* const thread = new (std::nothrow) Thread{.entry = entry, .argument = argument};
    if (thread == nullptr) return nullptr;
    // Suspended until it has its name and priority, so that no step of it runs without them.
    thread->handle = CreateThread(nullptr, 0, run_thread, thread, CREATE_SUSPENDED, nullptr);
    if (thread->handle == nullptr) {
        delete thread;
        return nullptr;
    }
    set_name(thread->handle, name);
    static_assert(THREAD_PRIORITY_LOWEST == -2 && THREAD_PRIORITY_HIGHEST == 2);
    SetThreadPriority(thread->handle, priority);
    ResumeThread(thread->handle);
    return thread;
}

void join_thread(Thread* thread) {
    WaitForSingleObject(thread->handle, INFINITE);
    CloseHandle(thread->handle);
    delete thread;
}

std::uint64_t current_thread_id() { return GetCurrentThreadId(); }
std::uint64_t current_thread_key() { return GetCurrentThreadId(); }

std::uintptr_t ThreadWord::get() const {
    const std::uint32_t slot = slot_.load(std::memory_order_acquire);
    return slot == no_slot ? 0 : reinterpret_cast<std::uintptr_t>(TlsGetValue(slot));
}

void ThreadWord::set(std::uintptr_t word) {
    static_assert(no_slot == TLS_OUT_OF_INDEXES);
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

struct ThreadSlot {
    DWORD index = TLS_OUT_OF_INDEXES;
};

ThreadSlot* create_thread_slot() {
    auto* const slot = new (std::nothrow) ThreadSlot;
    if (slot == nullptr) return nullptr;
    slot->index = TlsAlloc();
    if (slot->index != TLS_OUT_OF_INDEXES) return slot;
    delete slot;
    return nullptr;
}

void destroy_thread_slot(ThreadSlot* slot) {
    TlsFree(slot->index);
    delete slot;
}

void* get_thread_value(const ThreadSlot* slot) { return TlsGetValue(slot->index); }
void set_thread_value(ThreadSlot* slot, void* value) { TlsSetValue(slot->index, value); }

}  // namespace platform

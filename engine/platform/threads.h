#pragma once

#include <cstdint>

namespace platform {

struct Thread;
/// Starts a thread. `priority` runs from -2 (lowest) to 2 (highest normal), 0 normal; where the system refuses a raise
/// the thread runs at the normal one. The name is shown by debuggers (cut to what the system holds). Null on failure.
Thread* start_thread(const char* name, int priority, void (*entry)(void* argument), void* argument);
/// Waits for its end and frees it.
void join_thread(Thread* thread);
/// The system's number for the calling thread.
std::uint64_t current_thread_id();
/// Tells the calling thread from the others that live, without asking the system; never 0.
std::uint64_t current_thread_key();

/// A slot in which each thread keeps one pointer, null at first. The address is the system's number of it, one up, and
/// there is no object of this type.
struct ThreadSlot;
/// Null when the system has no slot left.
ThreadSlot* create_thread_slot();
void destroy_thread_slot(ThreadSlot* slot);
void* get_thread_value(const ThreadSlot* slot);
void set_thread_value(ThreadSlot* slot, void* value);

}  // namespace platform

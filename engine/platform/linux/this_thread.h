#pragma once

#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdint>

// What Linux keeps for each thread where other systems keep it for the process, or not at all.

namespace platform {

inline constexpr std::size_t thread_name_size = 16;  // with its terminator
inline void name_this_thread(const char* name) { ::pthread_setname_np(::pthread_self(), name); }

inline std::uint64_t this_thread_id() { return static_cast<std::uint64_t>(::gettid()); }

/// Adds to the calling thread's "nice". A raise of its priority fails without the privilege, and the thread stays as it
/// is.
inline void add_nice_to_this_thread(int steps) {
    const auto id = static_cast<id_t>(::gettid());
    ::setpriority(PRIO_PROCESS, id, ::getpriority(PRIO_PROCESS, id) + steps);
}

}  // namespace platform

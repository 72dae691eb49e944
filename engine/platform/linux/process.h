#pragma once

#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdint>
#include <string_view>

// What Linux alone tells of the process and its threads.

namespace platform {

inline constexpr std::size_t thread_name_size = 16;  // with its terminator
inline void name_this_thread(const char* name) { ::pthread_setname_np(::pthread_self(), name); }

/// Adds to the calling thread's "nice". A raise of its priority fails without the privilege, and the thread stays as it
/// is.
inline void add_nice_to_this_thread(int steps) {
    const auto id = static_cast<id_t>(::gettid());
    ::setpriority(PRIO_PROCESS, id, ::getpriority(PRIO_PROCESS, id) + steps);
}

struct Register {
    std::string_view name;
    std::uint64_t value = 0;
};
/// The registers of a signal's ucontext_t, the place of the crash first; returns their number, 0 where this processor is
/// not known here.
inline constexpr int most_registers = 33;
int read_registers(const void* context, Register (&out)[most_registers]);

/// One file of code in the process.
struct CodeFile {
    std::uintptr_t start = 0;
    std::uintptr_t end = 0;
    std::uintptr_t base = 0;  // from which the file counts its own addresses
    char name[64] = "";       // without its directory
};
/// Notes all of them, for find_code_file. It asks the loader: not for signal handlers, and not while one may ask.
void note_code_files();
/// The file at an address; null when none was there as they were noted.
const CodeFile* find_code_file(std::uintptr_t address);

inline constexpr const char* mappings_file = "/proc/self/maps";

}  // namespace platform

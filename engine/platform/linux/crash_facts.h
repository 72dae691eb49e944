#pragma once

#include <cstdint>
#include <string_view>

// What a report of a broken process needs and only Linux tells.

namespace platform {

struct Register {
    std::string_view name;
    std::uint64_t value = 0;
};
/// The registers of a signal's ucontext_t, the place of the crash first; returns their number, 0 where this processor is
/// not known here.
inline constexpr int most_registers = 33;
int read_registers(const void* context, Register (&out)[most_registers]);

/// One file of code in the process.
struct Module {
    std::uintptr_t start = 0;
    std::uintptr_t end = 0;
    std::uintptr_t base = 0;  // from which the file counts its own addresses
    char name[64] = "";       // without its directory
};
/// Notes all modules, for find_module. It asks the loader: not for signal handlers, and not while one may ask.
void note_modules();
/// The module at an address; null when none was there as they were noted.
const Module* find_module(std::uintptr_t address);

inline constexpr const char* mappings_file = "/proc/self/maps";

}  // namespace platform

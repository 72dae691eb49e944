#include "engine/platform/linux/crash_facts.h"

#include <link.h>
#include <ucontext.h>

#include <algorithm>
#include <utility>

#include "engine/platform/bounded_text.h"
#include "engine/platform/process.h"

namespace platform {

namespace {

constexpr int most_modules = 256;

struct ModuleList {
    int count = 0;
    Module modules[most_modules];
};
constinit ModuleList noted;

int note_module(dl_phdr_info* info, std::size_t, void*) {
    if (noted.count == most_modules) return 1;
    Module& module = noted.modules[noted.count];
    module = {.start = UINTPTR_MAX, .base = info->dlpi_addr};
    for (int i = 0; i < info->dlpi_phnum; ++i) {
        const auto& part = info->dlpi_phdr[i];
        if (part.p_type != PT_LOAD) continue;
        module.start = std::min<std::uintptr_t>(module.start, info->dlpi_addr + part.p_vaddr);
        module.end = std::max<std::uintptr_t>(module.end, info->dlpi_addr + part.p_vaddr + part.p_memsz);
    }
    // The loader lists the program itself first, and without its name.
    const std::string_view path = noted.count == 0 ? executable_path() : info->dlpi_name;
    BoundedText(module.name).add(path.substr(path.rfind('/') + 1));
    ++noted.count;
    return 0;
}

}  // namespace

#if defined(__x86_64__)
int read_registers(const void* context, Register (&out)[most_registers]) {
    constexpr std::pair<std::string_view, int> registers[] = {
        {"rip", REG_RIP}, {"rsp", REG_RSP}, {"rbp", REG_RBP}, {"rax", REG_RAX}, {"rbx", REG_RBX}, {"rcx", REG_RCX},
        {"rdx", REG_RDX}, {"rsi", REG_RSI}, {"rdi", REG_RDI}, {"r8", REG_R8},   {"r9", REG_R9},   {"r10", REG_R10},
        {"r11", REG_R11}, {"r12", REG_R12}, {"r13", REG_R13}, {"r14", REG_R14}, {"r15", REG_R15}, {"efl", REG_EFL},
    };
    const auto& values = static_cast<const ucontext_t*>(context)->uc_mcontext.gregs;
    int count = 0;
    for (const auto& [name, number] : registers) out[count++] = {name, static_cast<std::uint64_t>(values[number])};
    return count;
}
#elif defined(__aarch64__)
int read_registers(const void* context, Register (&out)[most_registers]) {
    constexpr std::string_view general[] = {"x0",  "x1",  "x2",  "x3",  "x4",  "x5",  "x6",  "x7",  "x8",  "x9",  "x10",
                                            "x11", "x12", "x13", "x14", "x15", "x16", "x17", "x18", "x19", "x20", "x21",
                                            "x22", "x23", "x24", "x25", "x26", "x27", "x28", "x29", "x30"};
    const auto& values = static_cast<const ucontext_t*>(context)->uc_mcontext;
    out[0] = {"pc", values.pc};
    out[1] = {"sp", values.sp};
    int count = 2;
    for (const std::string_view name : general) {
        out[count] = {name, values.regs[count - 2]};
        ++count;
    }
    return count;
}
#else
int read_registers(const void*, Register (&)[most_registers]) { return 0; }
#endif

void note_modules() {
    noted.count = 0;
    dl_iterate_phdr(note_module, nullptr);
}

const Module* find_module(std::uintptr_t address) {
    for (int i = 0; i < noted.count; ++i) {
        const Module& module = noted.modules[i];
        if (address >= module.start && address < module.end) return &module;
    }
    return nullptr;
}

}  // namespace platform

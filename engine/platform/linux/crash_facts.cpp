#include "engine/platform/linux/crash_facts.h"

#include <link.h>
#include <sys/syscall.h>
#include <ucontext.h>
#include <unistd.h>

#include <algorithm>

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

#if defined(__x86_64__)
struct NumberedName {
    std::string_view name;
    int number;
};
constexpr NumberedName registers[] = {
    {"rip", REG_RIP}, {"rsp", REG_RSP}, {"rbp", REG_RBP}, {"rax", REG_RAX}, {"rbx", REG_RBX}, {"rcx", REG_RCX},
    {"rdx", REG_RDX}, {"rsi", REG_RSI}, {"rdi", REG_RDI}, {"r8", REG_R8},   {"r9", REG_R9},   {"r10", REG_R10},
    {"r11", REG_R11}, {"r12", REG_R12}, {"r13", REG_R13}, {"r14", REG_R14}, {"r15", REG_R15}, {"efl", REG_EFL},
};

int fill(const ucontext_t& context, Register* out, int capacity) {
    int count = 0;
    for (const auto& [name, number] : registers) {
        if (count < capacity) out[count++] = {name, static_cast<std::uint64_t>(context.uc_mcontext.gregs[number])};
    }
    return count;
}
#elif defined(__aarch64__)
constexpr std::string_view general[] = {"x0",  "x1",  "x2",  "x3",  "x4",  "x5",  "x6",  "x7",  "x8",  "x9",  "x10",
                                        "x11", "x12", "x13", "x14", "x15", "x16", "x17", "x18", "x19", "x20", "x21",
                                        "x22", "x23", "x24", "x25", "x26", "x27", "x28", "x29", "x30"};

int fill(const ucontext_t& context, Register* out, int capacity) {
    int count = 0;
    const auto add = [&](std::string_view name, std::uint64_t value) {
        if (count < capacity) out[count++] = {name, value};
    };
    add("pc", context.uc_mcontext.pc);
    add("sp", context.uc_mcontext.sp);
    for (int i = 0; i < 31; ++i) add(general[i], context.uc_mcontext.regs[i]);
    return count;
}
#else
int fill(const ucontext_t&, Register*, int) { return 0; }
#endif

}  // namespace

int read_registers(const void* context, Register* out, int capacity) {
    return context == nullptr ? 0 : fill(*static_cast<const ucontext_t*>(context), out, capacity);
}

std::uintptr_t crashed_at(const void* context) {
    Register first;
    return read_registers(context, &first, 1) == 1 ? static_cast<std::uintptr_t>(first.value) : 0;
}

std::uint64_t kernel_thread_id() { return static_cast<std::uint64_t>(syscall(SYS_gettid)); }

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

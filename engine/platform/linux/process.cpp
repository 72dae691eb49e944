// What the kernel and the loader tell of the process, and large blocks of memory.
#include "engine/platform/process.h"

#include <link.h>
#include <sys/mman.h>
#include <ucontext.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>
#include <utility>

#include "engine/platform/linux/process.h"
#include "engine/platform/posix/system.h"
#include "engine/platform/text.h"
#include "engine/platform/threads.h"

namespace platform {
namespace {

/// Large pages make touching a block for the first time several times cheaper. A kernel without them says so, and the
/// block is as good.
void* with_large_pages(void* block, std::size_t size) {
    if (block == MAP_FAILED) return nullptr;
    ::madvise(block, size, MADV_HUGEPAGE);
    return block;
}

constexpr int most_files = 256;

struct CodeFiles {
    int count = 0;
    CodeFile files[most_files];
};
constinit CodeFiles noted;

int note_file(dl_phdr_info* info, std::size_t, void*) {
    if (noted.count == most_files) return 1;
    CodeFile& file = noted.files[noted.count];
    file = {.start = UINTPTR_MAX, .base = info->dlpi_addr};
    for (int i = 0; i < info->dlpi_phnum; ++i) {
        const auto& part = info->dlpi_phdr[i];
        if (part.p_type != PT_LOAD) continue;
        file.start = std::min<std::uintptr_t>(file.start, info->dlpi_addr + part.p_vaddr);
        file.end = std::max<std::uintptr_t>(file.end, info->dlpi_addr + part.p_vaddr + part.p_memsz);
    }
    // The loader lists the program itself first, and without its name.
    const std::string_view path = noted.count == 0 ? executable_path() : info->dlpi_name;
    BoundedText(file.name).add(path.substr(path.rfind('/') + 1));
    ++noted.count;
    return 0;
}

}  // namespace

std::uint64_t current_thread_id() { return static_cast<std::uint64_t>(::gettid()); }

std::string find_executable() {
    char target[4096];
    const ssize_t length = ::readlink("/proc/self/exe", target, sizeof target);
    return {target, static_cast<std::size_t>(std::max<ssize_t>(length, 0))};
}

std::string find_command_line() {
    std::string arguments;
    read_pieces("/proc/self/cmdline", [&](std::string_view piece) { arguments += piece; });
    if (!arguments.empty()) arguments.pop_back();  // each argument ends with a zero
    std::replace(arguments.begin(), arguments.end(), '\0', ' ');
    return arguments;
}

void* allocate_block(std::size_t size) {
    return with_large_pages(::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0), size);
}

void* grow_block(void* block, std::size_t old_size, std::size_t new_size) {
    return with_large_pages(::mremap(block, old_size, new_size, MREMAP_MAYMOVE), new_size);
}

void free_block(void* block, std::size_t size) { ::munmap(block, size); }

void populate(void* range, std::size_t size) {
    constexpr int populate_write = 23;  // MADV_POPULATE_WRITE, which older headers do not name
    static const auto page = static_cast<std::uintptr_t>(::sysconf(_SC_PAGESIZE));
    const std::uintptr_t begin = (reinterpret_cast<std::uintptr_t>(range) + page - 1) / page * page;
    const std::uintptr_t end = (reinterpret_cast<std::uintptr_t>(range) + size) / page * page;
    if (begin < end) ::madvise(reinterpret_cast<void*>(begin), end - begin, populate_write);
}

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
    int count = 0;
    out[count++] = {"pc", values.pc};
    out[count++] = {"sp", values.sp};
    for (std::size_t i = 0; i < std::size(general); ++i) out[count++] = {general[i], values.regs[i]};
    return count;
}
#else
int read_registers(const void*, Register (&)[most_registers]) { return 0; }
#endif

void note_code_files() {
    noted.count = 0;
    dl_iterate_phdr(note_file, nullptr);
}

const CodeFile* find_code_file(std::uintptr_t address) {
    for (int i = 0; i < noted.count; ++i) {
        const CodeFile& file = noted.files[i];
        if (address >= file.start && address < file.end) return &file;
    }
    return nullptr;
}

}  // namespace platform

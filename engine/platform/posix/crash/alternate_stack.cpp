#include "engine/platform/posix/crash/alternate_stack.h"

#include <sys/mman.h>

namespace platform {

namespace {
constexpr std::size_t stack_size = 256 * 1024;  // only what a handler touches takes memory
}  // namespace

AlternateStack::AlternateStack() {
    stack_t current{};
    if (sigaltstack(nullptr, &current) != 0 || (current.ss_flags & SS_DISABLE) == 0) return;
    void* const memory = mmap(nullptr, stack_size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) return;
    stack_t stack{};
    stack.ss_sp = memory;
    stack.ss_size = stack_size;
    if (sigaltstack(&stack, nullptr) == 0) {
        memory_ = memory;
    } else {
        munmap(memory, stack_size);
    }
}

AlternateStack::~AlternateStack() {
    if (memory_ == nullptr) return;
    stack_t none{};
    none.ss_flags = SS_DISABLE;
    sigaltstack(&none, nullptr);
    munmap(memory_, stack_size);
}

}  // namespace platform

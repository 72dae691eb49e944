#include "engine/platform/posix/futex.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>

#include "engine/platform/clock.h"
#include "engine/platform/sync.h"

namespace platform {

namespace {

constexpr std::uint64_t ns_per_second = 1'000'000'000;
constexpr std::uint64_t ns_per_ms = 1'000'000;

}  // namespace

bool futex_wait(const void* word, std::uint32_t expected, std::uint64_t deadline_ns) {
    timespec limit{};
    limit.tv_sec = static_cast<time_t>(deadline_ns / ns_per_second);
    limit.tv_nsec = static_cast<decltype(limit.tv_nsec)>(deadline_ns % ns_per_second);
    // The bitset form takes an absolute time of the monotonic clock, so a retry needs no arithmetic.
    const auto result = syscall(SYS_futex, word, FUTEX_WAIT_BITSET_PRIVATE, expected,
                                deadline_ns == 0 ? nullptr : &limit, nullptr, FUTEX_BITSET_MATCH_ANY);
    return result == 0 || errno != ETIMEDOUT;
}

void futex_wake(const void* word, std::uint32_t count) {
    syscall(SYS_futex, word, FUTEX_WAKE_PRIVATE, count, nullptr, nullptr, 0);
}

std::uint64_t deadline_after(std::uint32_t timeout_ms) {
    return timeout_ms == wait_forever ? 0 : steady_ns() + timeout_ms * ns_per_ms;
}

}  // namespace platform

#pragma once

#include <cstdint>

namespace platform {

/// Sleeps while `*word` equals `expected`. Returns at a wake, a change, a signal, or at `deadline_ns` of the steady
/// clock (0: never); callers look again in a loop. False only when the deadline has passed.
bool futex_wait(const void* word, std::uint32_t expected, std::uint64_t deadline_ns);

/// Wakes up to `count` sleepers. Touches no memory, so the word may be gone already.
void futex_wake(const void* word, std::uint32_t count);

inline constexpr std::uint32_t futex_all = 0x7FFFFFFFu;

/// When a wait of `timeout_ms` that starts now ends: nanoseconds of the steady clock, 0 for a wait without limit.
std::uint64_t deadline_after(std::uint32_t timeout_ms);

}  // namespace platform

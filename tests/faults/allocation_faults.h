#pragma once

#include <cstdint>

namespace test {

/// Not on Windows yet: there mutexes and the threads' own variables take memory at their first use, and the run-time library
/// ends the process when there is none.
#ifdef _WIN32
inline constexpr bool allocations_can_fail = false;
#else
inline constexpr bool allocations_can_fail = true;
#endif

/// The `nth` allocation from now on (1: the next) fails, of whichever thread, and every later one too when
/// `from_then_on`. 0 forgets the order. Both operator new and the C allocator, as this program and the library's archive
/// call them, are under orders; what other libraries take for themselves is not.
void fail_allocation(std::uint32_t nth, bool from_then_on = false);
/// How often an order has struck since the last fail_allocation.
std::uint32_t allocation_hits();

}  // namespace test

#pragma once

#include <cstdint>

namespace test {

/// The `nth` allocation from now on (1: the next) fails, of whichever thread, and every later one too when
/// `from_then_on`. 0 forgets the order. Both operator new and the C allocator, as this program and the library's archive
/// call them, are under orders; what other libraries take for themselves is not, nor
/// what the compiler's run-time library takes for its own mutexes and variables of threads on Windows.
void fail_allocation(std::uint32_t nth, bool from_then_on = false);
/// How often an order has struck since the last fail_allocation.
std::uint32_t allocation_hits();

}  // namespace test

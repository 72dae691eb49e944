#pragma once

#include <cstddef>
#include <cstdint>

namespace platform {

/// "0x00007f… module+0x1234 (function+0x56)": what an address is, from the process's mappings and the symbol tables of
/// the files behind them. `is_return` for return addresses, which stand behind their call. Safe in a signal handler: it
/// reads files and takes no memory.
void describe_address(std::uintptr_t address, bool is_return, char* out, std::size_t capacity);

}  // namespace platform

#pragma once

#include <cstddef>

namespace platform {

/// Converts text of the system's narrow code page (UTF-8 on POSIX; bytes that are no UTF-8 are taken one for one).
/// Writes at most `length` characters, no terminator; returns how many.
std::size_t narrow_to_wide(const char* text, std::size_t length, wchar_t* out);

}  // namespace platform

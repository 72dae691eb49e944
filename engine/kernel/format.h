#pragma once

#include <cstdarg>
#include <cstddef>

/// Marks a function whose parameter number `which` (from 1, `this` included) is a printf format. C99 on both systems.
#if defined(__MINGW32__)
#define ENGINE_PRINTF(which, first) [[gnu::format(gnu_printf, which, first)]]
#else
#define ENGINE_PRINTF(which, first) [[gnu::format(printf, which, first)]]
#endif

namespace kernel {

/// vsnprintf with one addition: "%p" prints "0x" and hexadecimal digits on every system, a null pointer too.
///
/// Returns  the length of the whole text, which is longer than what `out` holds when it was cut; negative when the
///          arguments cannot be converted (`out` is then "").
ENGINE_PRINTF(3, 0) int format_text(char* out, std::size_t capacity, const char* format, va_list args);

}  // namespace kernel

#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace platform {

/// Narrow text of the library is UTF-8; the system's calls take UTF-16.

/// Writes `text` with a terminator and answers the number of units before it; 0 when there is none, it does not fit, or
/// is no text. A component between "/" that is not UTF-8 is taken in `code_page`, by default the system's.
std::size_t to_wide(std::string_view text, wchar_t* out, std::size_t capacity, unsigned code_page = 0);

/// The way back, in bytes; 0 also for half of a surrogate pair, which no UTF-8 can tell.
std::size_t to_narrow(std::wstring_view text, char* out, std::size_t capacity);

/// Text of any length for people, in which what cannot be converted is replaced by a mark. Throws std::bad_alloc.
std::wstring to_utf16(std::string_view text);
std::string to_utf8(std::wstring_view text);

}  // namespace platform

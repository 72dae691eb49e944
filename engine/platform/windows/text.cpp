#include "engine/platform/text.h"

#include <windows.h>

#include <algorithm>

namespace platform {

namespace {

// The system counts in 32 bits. What is longer is cut anyhow: no text of people is.
constexpr std::size_t largest_piece = 0x4000'0000;

}  // namespace

std::size_t narrow_to_wide(const char* text, std::size_t length, wchar_t* out) {
    std::size_t written = 0;
    while (length != 0) {
        const std::size_t piece = std::min(length, largest_piece);
        const int size = static_cast<int>(piece);
        written +=
            static_cast<std::size_t>(std::max(MultiByteToWideChar(CP_ACP, 0, text, size, out + written, size), 0));
        text += piece;
        length -= piece;
    }
    return written;
}

}  // namespace platform

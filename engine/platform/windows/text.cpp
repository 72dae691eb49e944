#include "engine/platform/text.h"

#include <windows.h>

#include <algorithm>

namespace platform {

namespace {

// The system counts in 32 bits. No character of any code page holds a byte below a blank or a blank, except alone, so
// a text is cut after one of these; without any it is cut anyhow.
constexpr std::size_t largest_piece = 0x4000'0000;

std::size_t piece_length(const char* text, std::size_t length) {
    if (length <= largest_piece) return length;
    std::size_t at = largest_piece;
    while (at != 0 && static_cast<unsigned char>(text[at - 1]) > ' ') --at;
    return at == 0 ? largest_piece : at;
}

}  // namespace

std::size_t narrow_to_wide(const char* text, std::size_t length, wchar_t* out) {
    std::size_t written = 0;
    while (length != 0) {
        const std::size_t piece = piece_length(text, length);
        const int size = static_cast<int>(piece);
        written +=
            static_cast<std::size_t>(std::max(MultiByteToWideChar(CP_ACP, 0, text, size, out + written, size), 0));
        text += piece;
        length -= piece;
    }
    return written;
}

}  // namespace platform

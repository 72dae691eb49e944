#include "engine/platform/text.h"

#include <windows.h>

#include <algorithm>

#include "engine/platform/windows/text.h"

namespace platform {
namespace {

// The system counts in 32 bits. What is longer is cut anyhow: no text of people is.
constexpr std::size_t largest_piece = 0x4000'0000;

std::size_t widen(UINT code_page, DWORD flags, std::string_view text, wchar_t* out, std::size_t capacity) {
    if (text.empty()) return 0;
    const int written = MultiByteToWideChar(code_page, flags, text.data(), static_cast<int>(text.size()), out,
                                            static_cast<int>(capacity));
    return static_cast<std::size_t>(std::max(written, 0));
}

std::size_t narrow(DWORD flags, std::wstring_view text, char* out, std::size_t capacity) {
    if (text.empty()) return 0;
    const int written = WideCharToMultiByte(CP_UTF8, flags, text.data(), static_cast<int>(text.size()), out,
                                            static_cast<int>(capacity), nullptr, nullptr);
    return static_cast<std::size_t>(std::max(written, 0));
}

}  // namespace

std::size_t narrow_to_wide(const char* text, std::size_t length, wchar_t* out) {
    std::size_t written = 0;
    for (std::string_view rest(text, length); !rest.empty();) {
        const std::string_view piece = rest.substr(0, largest_piece);
        written += widen(CP_ACP, 0, piece, out + written, piece.size());
        rest.remove_prefix(piece.size());
    }
    return written;
}

std::size_t to_wide(std::string_view text, wchar_t* out, std::size_t capacity, unsigned code_page) {
    std::size_t length = widen(CP_UTF8, MB_ERR_INVALID_CHARS, text, out, capacity - 1);
    const bool mixed = length == 0;
    while (mixed && !text.empty()) {
        const std::string_view part = text.substr(0, std::max<std::size_t>(std::min(text.find('/'), text.size()), 1));
        const std::size_t room = capacity - 1 - length;
        std::size_t written = widen(CP_UTF8, MB_ERR_INVALID_CHARS, part, out + length, room);
        if (written == 0) written = widen(code_page, MB_ERR_INVALID_CHARS, part, out + length, room);
        if (written == 0) return 0;
        length += written;
        text.remove_prefix(part.size());
    }
    out[length] = L'\0';
    return length;
}

std::size_t to_narrow(std::wstring_view text, char* out, std::size_t capacity) {
    const std::size_t length = narrow(WC_ERR_INVALID_CHARS, text, out, capacity - 1);
    out[length] = '\0';
    return length;
}

std::wstring to_utf16(std::string_view text) {
    std::wstring wide(text.size(), L'\0');
    wide.resize(widen(CP_UTF8, 0, text, wide.data(), wide.size()));
    return wide;
}

std::string to_utf8(std::wstring_view text) {
    std::string bytes(text.size() * 3, '\0');
    bytes.resize(narrow(0, text, bytes.data(), bytes.size()));
    return bytes;
}

}  // namespace platform

#include "engine/platform/text.h"

#include <windows.h>

#include <algorithm>

#include "engine/platform/windows/text.h"

namespace platform {
namespace {

// The system counts in 32 bits. What is longer is cut anyhow: no text of people is.
constexpr std::size_t largest_piece = 0x4000'0000;

std::size_t convert(UINT code_page, std::string_view text, wchar_t* out, std::size_t capacity) {
    if (text.empty()) return 0;
    const int written = MultiByteToWideChar(code_page, MB_ERR_INVALID_CHARS, text.data(), static_cast<int>(text.size()),
                                            out, static_cast<int>(capacity));
    return static_cast<std::size_t>(std::max(written, 0));
}

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

std::size_t to_wide(std::string_view text, wchar_t* out, std::size_t capacity, unsigned code_page) {
    std::size_t length = convert(CP_UTF8, text, out, capacity - 1);
    const bool mixed = length == 0;
    while (mixed && !text.empty()) {
        const std::string_view part = text.substr(0, std::max<std::size_t>(std::min(text.find('/'), text.size()), 1));
        std::size_t written = convert(CP_UTF8, part, out + length, capacity - 1 - length);
        if (written == 0) written = convert(code_page, part, out + length, capacity - 1 - length);
        if (written == 0) return 0;
        length += written;
        text.remove_prefix(part.size());
    }
    out[length] = L'\0';
    return length;
}

std::size_t to_narrow(std::wstring_view text, char* out, std::size_t capacity) {
    if (text.empty()) return 0;
    const int written = WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, text.data(), static_cast<int>(text.size()),
                                            out, static_cast<int>(capacity - 1), nullptr, nullptr);
    const auto length = static_cast<std::size_t>(std::max(written, 0));
    out[length] = '\0';
    return length;
}

std::wstring to_utf16(std::string_view text) {
    std::wstring wide(text.size(), L'\0');
    const auto size = static_cast<int>(text.size());
    const int units = text.empty() ? 0 : MultiByteToWideChar(CP_UTF8, 0, text.data(), size, wide.data(), size);
    wide.resize(static_cast<std::size_t>(std::max(units, 0)));
    return wide;
}

std::string to_utf8(std::wstring_view text) {
    std::string narrow(text.size() * 3, '\0');
    const auto size = static_cast<int>(text.size());
    const int bytes = text.empty() ? 0
                                   : WideCharToMultiByte(CP_UTF8, 0, text.data(), size, narrow.data(),
                                                         static_cast<int>(narrow.size()), nullptr, nullptr);
    narrow.resize(static_cast<std::size_t>(std::max(bytes, 0)));
    return narrow;
}

}  // namespace platform

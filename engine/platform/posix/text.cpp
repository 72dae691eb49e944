#include "engine/platform/text.h"

#include <cstdint>

namespace platform {

namespace {

struct Lead {
    std::size_t length;      // bytes of the whole character, 0 when no character begins so
    std::uint32_t bits;      // what the lead byte carries
    std::uint32_t smallest;  // a smaller value would have a shorter form, which alone is valid
};

Lead read_lead(unsigned char byte) {
    if (byte >= 0xC2 && byte <= 0xDF) return {2, byte & 0x1Fu, 0x80};
    if (byte >= 0xE0 && byte <= 0xEF) return {3, byte & 0x0Fu, 0x800};
    if (byte >= 0xF0 && byte <= 0xF4) return {4, byte & 0x07u, 0x10000};
    return {0, 0, 0};
}

bool is_character(std::uint32_t value, std::uint32_t smallest) {
    const bool surrogate = value >= 0xD800 && value <= 0xDFFF;
    return value >= smallest && value <= 0x10FFFF && !surrogate;
}

// Bytes of the character at `text`, and the character; 1 and the byte itself where no valid one begins.
std::size_t decode(const unsigned char* text, std::size_t length, std::uint32_t& out) {
    out = text[0];
    const Lead lead = read_lead(text[0]);
    if (lead.length == 0 || lead.length > length) return 1;
    std::uint32_t value = lead.bits;
    for (std::size_t at = 1; at < lead.length; ++at) {
        if ((text[at] & 0xC0) != 0x80) return 1;
        value = value << 6 | (text[at] & 0x3Fu);
    }
    if (!is_character(value, lead.smallest)) return 1;
    out = value;
    return lead.length;
}

}  // namespace

std::size_t narrow_to_wide(const char* text, std::size_t length, wchar_t* out) {
    const auto* const bytes = reinterpret_cast<const unsigned char*>(text);
    std::size_t written = 0;
    for (std::size_t at = 0; at < length;) {
        std::uint32_t character = 0;
        at += decode(bytes + at, length - at, character);
        out[written++] = static_cast<wchar_t>(character);
    }
    return written;
}

}  // namespace platform

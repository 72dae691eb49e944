// The decoder of UTF-8.
#include "engine/platform/text.h"

namespace platform {

Utf8Character decode_utf8(std::string_view text) {
    const auto byte = [&](std::size_t at) { return at < text.size() ? static_cast<unsigned char>(text[at]) : 0u; };
    const std::uint32_t lead = byte(0);
    if (lead < 0x80) return {lead, 1};
    if (lead < 0xC2 || lead > 0xF4) return {};
    const std::size_t length = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    std::uint32_t value = lead & 0x7Fu >> length;
    for (std::size_t at = 1; at < length; ++at) {
        if ((byte(at) & 0xC0) != 0x80) return {};
        value = value << 6 | (byte(at) & 0x3F);
    }
    // The shortest form alone is valid.
    constexpr std::uint32_t smallest[] = {0x80, 0x800, 0x10000};
    const bool is_surrogate = value >= 0xD800 && value <= 0xDFFF;
    if (value < smallest[length - 2] || value > 0x10FFFF || is_surrogate) return {};
    return {value, length};
}

}  // namespace platform

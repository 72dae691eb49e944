#include "engine/kernel/utf8.h"

#include <cstddef>
#include <cstdint>

namespace kernel {

bool is_utf8(std::string_view text) {
    for (std::size_t at = 0; at < text.size();) {
        const auto byte = [&](std::size_t i) {
            return static_cast<std::uint8_t>(at + i < text.size() ? text[at + i] : 0);
        };
        const std::uint8_t lead = byte(0);
        const std::size_t length = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
        if ((lead >= 0x80 && lead < 0xC2) || lead > 0xF4) return false;
        for (std::size_t i = 1; i < length; ++i)
            if ((byte(i) & 0xC0) != 0x80) return false;
        // Longer forms than needed, surrogates and what lies beyond the last character differ in the second byte.
        const std::uint8_t second = byte(1);
        if ((lead == 0xE0 && second < 0xA0) || (lead == 0xED && second > 0x9F)) return false;
        if ((lead == 0xF0 && second < 0x90) || (lead == 0xF4 && second > 0x8F)) return false;
        at += length;
    }
    return true;
}

}  // namespace kernel

#include "engine/platform/text.h"

namespace platform {

std::size_t narrow_to_wide(const char* text, std::size_t length, wchar_t* out) {
    std::size_t written = 0;
    for (std::string_view rest(text, length); !rest.empty();) {
        Utf8Character character = decode_utf8(rest);
        if (character.length == 0) character = {static_cast<unsigned char>(rest[0]), 1};
        out[written++] = static_cast<wchar_t>(character.value);
        rest.remove_prefix(character.length);
    }
    return written;
}

}  // namespace platform

#pragma once

#include <string_view>

#include "engine/platform/text.h"

namespace kernel {

/// Whether all of the text is well-formed UTF-8.
inline bool is_utf8(std::string_view text) {
    while (!text.empty()) {
        const std::size_t length = platform::decode_utf8(text).length;
        if (length == 0) return false;
        text.remove_prefix(length);
    }
    return true;
}

}  // namespace kernel

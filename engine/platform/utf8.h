#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace platform {

/// A character and the bytes that it takes; none where no well-formed one begins.
struct Utf8Character {
    std::uint32_t value = 0;
    std::size_t length = 0;
};
/// The first character of `text`, which is not empty.
Utf8Character decode_utf8(std::string_view text);

}  // namespace platform

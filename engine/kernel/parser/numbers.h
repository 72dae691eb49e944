#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace kernel::config {

/// The whole of `text` as a number, the same in every locale; nothing when it is none or does not fit.
std::optional<std::int32_t> parse_int(std::string_view text);  // decimal or 0x, signed
std::optional<float> parse_float(std::string_view text);

}  // namespace kernel::config

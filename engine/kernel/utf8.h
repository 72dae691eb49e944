#pragma once

#include <string_view>

namespace kernel {

/// Whether all of the text is well-formed UTF-8.
bool is_utf8(std::string_view text);

}  // namespace kernel

#pragma once

#include <string_view>

namespace fs {

/// Why no pack source could show a file of this name; null when it could. The text goes on behind "the name".
const char* refuse_entry_name(std::string_view name);

}  // namespace fs

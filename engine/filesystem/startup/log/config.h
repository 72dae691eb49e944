#pragma once

#include <string>

namespace crash {

/// Reads the configuration and applies it to filters and levels. Looks for `name`, then for the same name in the
/// directory of the executable: through the file system when it is initialised, otherwise on the disk.
/// False when there is no text to be read.
bool read_configuration(const std::string& name);

/// Applies a text; `file` names it. Commands that are not known are passed over. False when there is no memory for it.
bool apply_configuration(const std::string& text, const char* file);

}  // namespace crash

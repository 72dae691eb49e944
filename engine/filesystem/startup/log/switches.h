#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace crash {

/// Whether `word` stands on the command line as a switch: behind "/", "-" or "--" at the start of the line or of a word,
/// in any case, and followed by a blank, a tab or the end.
bool has_switch(std::string_view command_line, std::string_view word);

/// The value of the first option of this name ("logcfg=") that has one: up to the next blank. Values of 260 characters
/// and more, and empty ones, are passed over.
std::optional<std::string> option_value(std::string_view command_line, std::string_view name);

}  // namespace crash

#include "engine/filesystem/startup/log/switches.h"

#include <algorithm>

#include "engine/kernel/text.h"

namespace crash {

namespace {

constexpr std::size_t value_limit = 260;

bool is_separator(char c) { return c == ' ' || c == '\t'; }

/// Whether `before`, what stands before a word, ends in a marker that starts the line or follows a blank.
bool ends_in_marker(std::string_view before) {
    for (const std::string_view marker : {"--", "-", "/"}) {
        if (!before.ends_with(marker)) continue;
        const std::string_view rest = before.substr(0, before.size() - marker.size());
        if (rest.empty() || is_separator(rest.back())) return true;
    }
    return false;
}

/// Calls `use` with what follows each marked occurrence of `word`, until it answers true.
template <class Use>
bool for_each_switch(std::string_view line, std::string_view word, Use use) {
    const auto is_same = [](char a, char b) { return kernel::fold(a) == kernel::fold(b); };
    for (auto from = line.begin();; ++from) {
        from = std::search(from, line.end(), word.begin(), word.end(), is_same);
        if (from == line.end()) return false;
        const auto at = static_cast<std::size_t>(from - line.begin());
        if (ends_in_marker(line.substr(0, at)) && use(line.substr(at + word.size()))) return true;
    }
}

}  // namespace

bool has_switch(std::string_view command_line, std::string_view word) {
    return for_each_switch(command_line, word,
                           [](std::string_view rest) { return rest.empty() || is_separator(rest[0]); });
}

std::optional<std::string> option_value(std::string_view command_line, std::string_view name) {
    std::optional<std::string> result;
    for_each_switch(command_line, name, [&](std::string_view rest) {
        const std::string_view value = rest.substr(0, rest.find(' '));
        if (value.empty() || value.size() >= value_limit) return false;
        result = value;
        return true;
    });
    return result;
}

}  // namespace crash

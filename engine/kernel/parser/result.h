#pragma once

#include <string_view>
#include <vector>

#include <engine/kernel/parser.h>

#include "engine/kernel/parser/arena.h"
#include "engine/kernel/parser/lexer.h"

namespace kernel::config {

inline constexpr std::size_t max_errors = 1000;

/// What parsing collects.
struct Result {
    TextArena arena;
    std::vector<SConfigCommand> commands;
    std::vector<SConfigValue> values;  // of all commands, one after the other
    std::vector<SConfigError> errors;

    /// `detail`, where it is not empty, is quoted behind the sentence, cut to a line's worth.
    void add_error(const char* file, const Token& where, std::string_view sentence, std::string_view detail = {});
    /// Gives each command its values, once they stay where they are.
    void link_values();
};

}  // namespace kernel::config

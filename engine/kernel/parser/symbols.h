#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include <engine/kernel/parser.h>

#include "engine/kernel/parser/lexer.h"
#include "engine/kernel/parser/names.h"

namespace kernel::config {

/// The constants and variables of one parse, and the texts that they make.
class Symbols {
public:
    /// More text to be parsed allows more text to be made of it.
    void add_source(std::size_t length) { expansion_left_ += length * expansion_factor; }

    /// The text that a word or string stands for: escapes taken apart, variables replaced. Valid until the next call;
    /// `problem` tells what was wrong, and is null otherwise.
    std::string_view resolve(const Token& token, const char*& problem);

    /// Null, or why the variable cannot have this value.
    const char* set_variable(std::string_view name, std::string_view value);
    /// False when the constant exists already.
    bool define_constant(std::string_view name, const SConfigValue& value);
    const SConfigValue* find_constant(std::string_view name) const;

private:
    // Variables multiply text. What they make stays in proportion to what was read, whatever is done with them.
    static constexpr std::uint64_t expansion_factor = 16;

    std::size_t expand_variable(std::string_view text, const char*& problem);
    std::size_t expand_escape(std::string_view text);
    void append(std::string_view text, const char*& problem);

    NameMap<SConfigValue> constants_;
    NameMap<std::string> variables_;
    std::string scratch_;
    std::uint64_t expansion_left_ = 65536;
};

bool is_name(std::string_view text);

}  // namespace kernel::config

#pragma once

#include <algorithm>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <engine/kernel/parser.h>

#include "engine/kernel/parser/lexer.h"
#include "engine/kernel/text.h"

namespace kernel::config {

struct NameLess {
    using is_transparent = void;
    bool operator()(std::string_view a, std::string_view b) const {
        return std::ranges::lexicographical_compare(a, b, {}, fold, fold);
    }
};

/// Names are the same in any case.
template <class Value>
using NameMap = std::map<std::string, Value, NameLess>;

bool is_name(std::string_view text);

using Type = EConfigValue::TYPE;

std::optional<Type> type_from_name(std::string_view name);

/// Keywords and the types of their parameters.
using Keywords = NameMap<std::vector<Type>>;

/// Reads lines such as "!Permit(s,i,i)". What is no type letter counts as a string.
Keywords read_keywords(std::string_view text);

/// The whole of `text` as a number, the same in every locale; nothing when it is none or does not fit.
std::optional<std::int32_t> parse_int(std::string_view text);  // decimal or 0x, signed
std::optional<float> parse_float(std::string_view text);

/// The variables of one parse, and the texts that they make.
class Variables {
public:
    /// More text to be parsed allows more text to be made of it.
    void add_source(std::size_t length) { expansion_left_ += length * expansion_factor; }

    /// The text that a word or string stands for: escapes taken apart, variables replaced. Valid until the next call;
    /// `problem` receives what was wrong, or null.
    std::string_view resolve(const Token& token, const char*& problem);

    /// Null, or why the variable cannot have this value.
    const char* set(std::string_view name, std::string_view value);

private:
    // Variables multiply text. What they make stays in proportion to what was read, whatever is done with them.
    static constexpr std::uint64_t expansion_factor = 16;

    std::size_t expand(std::string_view text, const char*& problem);
    std::size_t unescape(std::string_view text);

    NameMap<std::string> values_;
    std::string scratch_;
    std::uint64_t expansion_left_ = 65536;
};

}  // namespace kernel::config

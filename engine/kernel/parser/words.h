#pragma once

#include <engine/kernel/parser.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "engine/kernel/text.h"

// The words of a configuration text, and what they stand for.

namespace kernel::config {

enum class TokenKind : std::uint8_t { END, WORD, STRING, OPEN, CLOSE, COMMA, BANG };

struct Token {
    TokenKind kind = TokenKind::END;
    bool starts_line = false;  // first token of its line
    std::uint32_t line = 1;
    std::uint32_t column = 1;
    std::string_view text;          // into the lexer's text; without the quotes of a string
    const char* problem = nullptr;  // what is wrong with it, or with what stands before it
};

/// Cuts a text into tokens. Never fails: what is damaged comes out as a token with a problem.
class Lexer {
public:
    explicit Lexer(std::string_view text);

    Token next();
    /// Goes on behind the current line.
    void skip_line();

private:
    bool is_comment(const char* at) const;
    bool skip_comment();
    void start_line(const char* start);
    Token make(TokenKind kind, std::size_t length);
    Token token();
    Token word();
    Token string();

    const char* at_;
    const char* const end_;
    const char* line_start_;
    std::uint32_t line_ = 1;
    bool fresh_line_ = true;
};

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

#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

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
    bool at_comment() const;
    bool skip_blanks(Token& unclosed);
    bool skip_comment();
    void start_line(const char* start);
    Token make(TokenKind kind, std::size_t length);
    Token word();
    Token string();

    const char* at_;
    const char* const end_;
    const char* line_start_;
    std::uint32_t line_ = 1;
    bool fresh_line_ = true;
};

}  // namespace kernel::config

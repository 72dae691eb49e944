// Words are told from separators by one table look-up for each character; lines are counted where they end. A quoted
// string ends with its line at the latest, so that a forgotten quote costs one line and not the rest of the file.
#include "engine/kernel/parser/lexer.h"

#include <algorithm>
#include <array>

namespace kernel::config {

namespace {

enum class Class : std::uint8_t { BLANK, MARK, WORD };

constexpr std::array<Class, 256> classes = [] {
    std::array<Class, 256> table{};
    for (std::size_t c = 0; c < table.size(); ++c) table[c] = c > ' ' && c != 0x7F ? Class::WORD : Class::BLANK;
    for (const char mark : {',', '(', ')', '"', '\n'}) table[static_cast<unsigned char>(mark)] = Class::MARK;
    table[';'] = Class::BLANK;
    return table;
}();

Class class_of(char c) { return classes[static_cast<unsigned char>(c)]; }

}  // namespace

Lexer::Lexer(std::string_view text) : at_(text.data()), end_(text.data() + text.size()), line_start_(text.data()) {
    constexpr std::string_view byte_order_mark = "\xEF\xBB\xBF";
    if (text.starts_with(byte_order_mark)) at_ = line_start_ = at_ + byte_order_mark.size();
}

bool Lexer::at_comment() const { return *at_ == '/' && end_ - at_ > 1 && (at_[1] == '/' || at_[1] == '*'); }

void Lexer::start_line(const char* start) {
    ++line_;
    line_start_ = start;
    fresh_line_ = true;
}

void Lexer::skip_line() {
    const std::string_view rest(at_, end_);
    at_ += std::min(rest.find('\n'), rest.size());
}

/// False when the comment has no end.
bool Lexer::skip_comment() {
    if (at_[1] == '/') return skip_line(), true;
    for (at_ += 2; at_ < end_; ++at_) {
        if (*at_ == '\n') start_line(at_ + 1);
        if (*at_ == '*' && end_ - at_ > 1 && at_[1] == '/') return at_ += 2, true;
    }
    return false;
}

/// Passes over everything that is no token. False at a comment without an end, whose place `unclosed` receives.
bool Lexer::skip_blanks(Token& unclosed) {
    while (at_ < end_) {
        if (*at_ == '\n') {
            start_line(++at_);
        } else if (class_of(*at_) == Class::BLANK) {
            ++at_;
        } else if (!at_comment()) {
            return true;
        } else {
            unclosed = make(TokenKind::END, 0);
            fresh_line_ = unclosed.starts_line;
            if (!skip_comment()) return false;
        }
    }
    return true;
}

Token Lexer::make(TokenKind kind, std::size_t length) {
    const Token token{.kind = kind,
                      .starts_line = fresh_line_,
                      .line = line_,
                      .column = static_cast<std::uint32_t>(at_ - line_start_) + 1,
                      .text = {at_, length}};
    at_ += length;
    fresh_line_ = false;
    return token;
}

Token Lexer::next() {
    Token unclosed;
    if (!skip_blanks(unclosed)) {
        unclosed.starts_line = true;
        unclosed.problem = "A comment is not closed.";
        return unclosed;
    }
    if (at_ == end_) return make(TokenKind::END, 0);
    if (*at_ == '"') return string();
    if (class_of(*at_) == Class::WORD && *at_ != '!') return word();
    constexpr std::string_view marks = "(),!";
    constexpr std::array kinds = {TokenKind::OPEN, TokenKind::CLOSE, TokenKind::COMMA, TokenKind::BANG};
    return make(kinds[marks.find(*at_)], 1);
}

Token Lexer::word() {
    const char* const start = at_;
    while (at_ < end_ && class_of(*at_) == Class::WORD && !at_comment()) ++at_;
    const auto length = static_cast<std::size_t>(at_ - start);
    at_ = start;
    return make(TokenKind::WORD, length);
}

Token Lexer::string() {
    Token token = make(TokenKind::STRING, 1);
    const char* const start = at_;
    while (at_ < end_ && *at_ != '"' && *at_ != '\n') {
        if (*at_ == '\0') token.problem = "A string holds a zero byte.";
        at_ += *at_ == '\\' && end_ - at_ > 1 && at_[1] != '\n' ? 2 : 1;
    }
    token.text = {start, at_};
    if (at_ < end_ && *at_ == '"') return ++at_, token;
    token.problem = "A string is not closed on its line.";
    if (token.text.ends_with('\r')) token.text.remove_suffix(1);
    return token;
}

}  // namespace kernel::config

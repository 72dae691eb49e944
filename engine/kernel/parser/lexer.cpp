// Words are told from separators by one table look-up for each character; lines are counted where they end. A quoted
// string ends with its line at the latest, so that a forgotten quote costs one line and not the rest of the file.
#include "engine/kernel/parser/lexer.h"

#include <array>
#include <cstring>

namespace kernel::config {

namespace {

constexpr std::uint8_t word_character = 1;
constexpr std::uint8_t blank = 2;
constexpr std::uint8_t needs_a_look = 4;  // in a word: may start a comment, or names a variable

constexpr std::array<std::uint8_t, 256> make_classes() {
    std::array<std::uint8_t, 256> classes{};
    for (int c = 0; c < 256; ++c) classes[c] = c > ' ' && c != 0x7F ? word_character : blank;
    for (const char separator : {',', '(', ')', '"', ';'}) classes[static_cast<unsigned char>(separator)] = 0;
    classes[';'] = blank;
    classes['\n'] = 0;
    classes['/'] = classes['$'] = word_character | needs_a_look;
    return classes;
}
constexpr std::array<std::uint8_t, 256> classes = make_classes();

std::uint8_t class_of(char c) { return classes[static_cast<unsigned char>(c)]; }

}  // namespace

Lexer::Lexer(std::string_view text) : at_(text.data()), end_(text.data() + text.size()), line_start_(text.data()) {
    constexpr std::string_view byte_order_mark = "\xEF\xBB\xBF";
    if (text.starts_with(byte_order_mark)) at_ = line_start_ = at_ + byte_order_mark.size();
}

bool Lexer::at_comment() const { return at_ + 1 < end_ && at_[0] == '/' && (at_[1] == '/' || at_[1] == '*'); }

void Lexer::start_line() {
    ++line_;
    line_start_ = at_;
    fresh_line_ = true;
}

void Lexer::skip_line() {
    const void* const newline = std::memchr(at_, '\n', static_cast<std::size_t>(end_ - at_));
    at_ = newline == nullptr ? end_ : static_cast<const char*>(newline);
}

/// False when the comment has no end.
bool Lexer::skip_comment() {
    if (at_[1] == '/') {
        skip_line();
        return true;
    }
    for (at_ += 2; at_ < end_; ++at_) {
        if (*at_ == '*' && at_ + 1 < end_ && at_[1] == '/') {
            at_ += 2;
            return true;
        }
        if (*at_ == '\n') {
            ++line_;
            line_start_ = at_ + 1;
            fresh_line_ = true;
        }
    }
    return false;
}

/// Passes over everything that is no token. False at a comment without an end, whose place `unclosed` receives.
bool Lexer::skip_blanks(Token& unclosed) {
    while (at_ < end_) {
        if (*at_ == '\n') {
            ++at_;
            start_line();
        } else if (class_of(*at_) == blank) {
            ++at_;
        } else if (*at_ != '/' || !at_comment()) {
            return true;
        } else {
            unclosed.line = line_;
            unclosed.column = column();
            if (!skip_comment()) return false;
        }
    }
    return true;
}

Token Lexer::make(TokenKind kind, std::size_t length) {
    Token token;
    token.kind = kind;
    token.starts_line = fresh_line_;
    token.line = line_;
    token.column = column();
    token.text = {at_, length};
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
    switch (*at_) {
        case '(':
            return make(TokenKind::OPEN, 1);
        case ')':
            return make(TokenKind::CLOSE, 1);
        case ',':
            return make(TokenKind::COMMA, 1);
        case '!':
            return make(TokenKind::BANG, 1);
        case '"':
            return string();
        default:
            return word();
    }
}

Token Lexer::word() {
    const char* const start = at_;
    bool has_variables = false;
    while (at_ < end_ && (class_of(*at_) & word_character) != 0) {
        if ((class_of(*at_) & needs_a_look) != 0) {
            if (at_comment()) break;
            has_variables |= *at_ == '$';
        }
        ++at_;
    }
    const auto length = static_cast<std::size_t>(at_ - start);
    at_ = start;
    Token token = make(TokenKind::WORD, length);
    token.has_variables = has_variables;
    return token;
}

Token Lexer::string() {
    Token token = make(TokenKind::STRING, 1);
    const char* const start = at_;
    while (at_ < end_ && *at_ != '"' && *at_ != '\n') {
        token.has_escapes |= *at_ == '\\';
        token.has_variables |= *at_ == '$';
        if (*at_ == '\0') token.problem = "A string holds a zero byte.";
        at_ += *at_ == '\\' && at_ + 1 < end_ && at_[1] != '\n' ? 2 : 1;
    }
    token.text = {start, static_cast<std::size_t>(at_ - start)};
    if (at_ < end_ && *at_ == '"') {
        ++at_;
    } else {
        token.problem = "A string is not closed on its line.";
        if (!token.text.empty() && token.text.back() == '\r') token.text.remove_suffix(1);
    }
    return token;
}

}  // namespace kernel::config

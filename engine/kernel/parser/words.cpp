// Words are told from separators by one table look-up for each character; lines are counted where they end. A quoted
// string ends with its line at the latest, so that a forgotten quote costs one line and not the rest of the file.
#include "engine/kernel/parser/words.h"

#include <array>
#include <charconv>
#include <cmath>
#include <system_error>

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

constexpr std::size_t longest_value = 4096;
constexpr std::string_view name_characters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_";

std::string_view leading_name(std::string_view text) { return text.substr(0, text.find_first_not_of(name_characters)); }

Type type_from_letter(char letter) {
    const std::size_t at = std::string_view("sifvq").find(fold(letter));
    return at == std::string_view::npos ? EConfigValue::STRING : static_cast<Type>(EConfigValue::STRING + at);
}

}  // namespace

Lexer::Lexer(std::string_view text) : at_(text.data()), end_(text.data() + text.size()), line_start_(text.data()) {
    constexpr std::string_view byte_order_mark = "\xEF\xBB\xBF";
    if (text.starts_with(byte_order_mark)) at_ = line_start_ = at_ + byte_order_mark.size();
}

bool Lexer::is_comment(const char* at) const { return *at == '/' && end_ - at > 1 && (at[1] == '/' || at[1] == '*'); }

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
    while (at_ < end_) {
        if (*at_ == '\n') {
            start_line(++at_);
        } else if (class_of(*at_) == Class::BLANK) {
            ++at_;
        } else if (!is_comment(at_)) {
            return token();
        } else {
            Token comment = make(TokenKind::END, 0);
            fresh_line_ = comment.starts_line;
            if (skip_comment()) continue;
            comment.starts_line = true;
            comment.problem = "A comment is not closed.";
            return comment;
        }
    }
    return make(TokenKind::END, 0);
}

Token Lexer::token() {
    if (*at_ == '"') return string();
    if (class_of(*at_) == Class::WORD && *at_ != '!') return word();
    constexpr std::string_view marks = "(),!";
    constexpr std::array kinds = {TokenKind::OPEN, TokenKind::CLOSE, TokenKind::COMMA, TokenKind::BANG};
    return make(kinds[marks.find(*at_)], 1);
}

Token Lexer::word() {
    const char* end = at_;
    while (end < end_ && class_of(*end) == Class::WORD && !is_comment(end)) ++end;
    return make(TokenKind::WORD, static_cast<std::size_t>(end - at_));
}

Token Lexer::string() {
    Token token = make(TokenKind::STRING, 1);
    const char* const start = at_;
    while (at_ < end_ && *at_ != '"' && *at_ != '\n') at_ += *at_ == '\\' && end_ - at_ > 1 && at_[1] != '\n' ? 2 : 1;
    token.text = {start, at_};
    if (token.text.find('\0') != std::string_view::npos) token.problem = "A string holds a zero byte.";
    if (at_ < end_ && *at_ == '"') return ++at_, token;
    token.problem = "A string is not closed on its line.";
    if (token.text.ends_with('\r')) token.text.remove_suffix(1);
    return token;
}

bool is_name(std::string_view text) { return !text.empty() && leading_name(text).size() == text.size(); }

std::optional<Type> type_from_name(std::string_view name) {
    constexpr std::array<std::string_view, 5> names = {"string", "int", "float", "vec3", "vec4"};
    const auto found = std::ranges::find_if(names, [&](std::string_view known) { return equal_folded(name, known); });
    if (found == names.end()) return std::nullopt;
    return static_cast<Type>(EConfigValue::STRING + (found - names.begin()));
}

Keywords read_keywords(std::string_view text) {
    Keywords keywords;
    std::vector<Type>* current = nullptr;
    bool in_types = false;
    Lexer lexer(text);
    for (Token token = lexer.next(); token.kind != TokenKind::END; token = lexer.next()) {
        if (token.kind == TokenKind::WORD && in_types) {
            current->push_back(type_from_letter(token.text[0]));
        } else if (token.kind == TokenKind::WORD) {
            current = &keywords[std::string(token.text)];
        } else if (token.kind == TokenKind::OPEN && current != nullptr && !in_types) {
            current->clear();
            in_types = true;
        } else if (token.kind == TokenKind::CLOSE) {
            in_types = false;
        }
    }
    return keywords;
}

std::optional<std::int32_t> parse_int(std::string_view text) {
    const bool negative = text.starts_with('-');
    if (negative || text.starts_with('+')) text.remove_prefix(1);
    const bool hex = text.starts_with("0x") || text.starts_with("0X");
    if (hex) text.remove_prefix(2);
    std::uint64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, hex ? 16 : 10);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    // Hexadecimal digits may spell all 32 bits, such as a mask; decimal ones must be in the signed range.
    const std::uint64_t positive_limit = hex ? 0xFFFFFFFFu : 0x7FFFFFFFu;
    if (value > (negative ? 0x80000000u : positive_limit)) return std::nullopt;
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(negative ? 0 - value : value));
}

std::optional<float> parse_float(std::string_view text) {
    if (text.starts_with('+') && !text.starts_with("+-")) text.remove_prefix(1);
    float value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || !std::isfinite(value)) return std::nullopt;
    return value;
}

std::string_view Variables::resolve(const Token& token, const char*& problem) {
    problem = nullptr;
    const bool has_escapes = token.kind == TokenKind::STRING && token.text.find('\\') != std::string_view::npos;
    if (!has_escapes && token.text.find('$') == std::string_view::npos) return token.text;
    scratch_.clear();
    std::string_view rest = token.text;
    while (!rest.empty()) {
        std::size_t used = 0;
        if (rest[0] == '$') {
            used = expand(rest, problem);
        } else if (rest[0] == '\\' && has_escapes) {
            used = unescape(rest);
        } else {
            used = std::min(rest.find_first_of("$\\", 1), rest.size());
            scratch_.append(rest.substr(0, used));
        }
        rest.remove_prefix(used);
    }
    return scratch_;
}

/// "$name", "${name}" and "$$"; a "$" before anything else is itself. Returns how much of `text` was used.
std::size_t Variables::expand(std::string_view text, const char*& problem) {
    const bool braced = text.starts_with("${");
    const std::string_view name = leading_name(text.substr(braced ? 2 : 1));
    const std::size_t used = (braced ? 3 : 1) + name.size();
    if (name.empty() || (braced && (used > text.size() || text[used - 1] != '}'))) {
        scratch_ += '$';
        return text.starts_with("$$") ? 2 : 1;
    }
    const auto found = values_.find(name);
    if (found == values_.end()) {
        problem = "A variable is not known.";
    } else if (found->second.size() > expansion_left_) {
        problem = "Variables make more text than is allowed.";
    } else {
        expansion_left_ -= found->second.size();
        scratch_ += found->second;
    }
    return used;
}

/// A backslash before anything that is no escape is itself, as in a Windows path. Returns how much of `text` was used.
std::size_t Variables::unescape(std::string_view text) {
    constexpr std::string_view letters = "nrt\"\\$";
    constexpr std::string_view meanings = "\n\r\t\"\\$";
    const std::size_t letter = text.size() > 1 ? letters.find(text[1]) : std::string_view::npos;
    if (letter != std::string_view::npos) {
        scratch_ += meanings[letter];
        return 2;
    }
    unsigned value = 0;
    const bool is_hex = text.size() >= 4 && text[1] == 'x' &&
                        std::from_chars(text.data() + 2, text.data() + 4, value, 16).ptr == text.data() + 4;
    scratch_ += is_hex && value != 0 ? static_cast<char>(value) : '\\';
    return is_hex && value != 0 ? 4 : 1;
}

const char* Variables::set(std::string_view name, std::string_view value) {
    if (!is_name(name)) return "A variable's name holds letters, digits and \"_\" only.";
    if (value.size() > longest_value) return "A variable's value is too long.";
    values_[std::string(name)] = value;
    return nullptr;
}

}  // namespace kernel::config

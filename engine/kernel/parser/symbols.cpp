#include "engine/kernel/parser/symbols.h"

#include <algorithm>
#include <charconv>

namespace kernel::config {

namespace {

constexpr std::size_t longest_variable = 4096;

bool is_name_character(char c) { return (lower(c) >= 'a' && lower(c) <= 'z') || (c >= '0' && c <= '9') || c == '_'; }

std::string_view leading_name(std::string_view text) {
    const auto end = std::find_if_not(text.begin(), text.end(), is_name_character);
    return text.substr(0, static_cast<std::size_t>(end - text.begin()));
}

/// What a letter after a backslash means; the letter itself where it means nothing special.
char unescaped(char c) {
    switch (c) {
        case 'n':
            return '\n';
        case 'r':
            return '\r';
        case 't':
            return '\t';
        default:
            return c;
    }
}

bool is_plain_escape(char c) { return c == 'n' || c == 'r' || c == 't' || c == '"' || c == '\\' || c == '$'; }

}  // namespace

bool is_name(std::string_view text) { return !text.empty() && leading_name(text).size() == text.size(); }

std::string_view Symbols::resolve(const Token& token, const char*& problem) {
    problem = nullptr;
    if (!token.has_escapes && !token.has_variables) return token.text;
    scratch_.clear();
    std::string_view rest = token.text;
    while (!rest.empty()) {
        std::size_t used = 0;
        if (rest[0] == '$') {
            used = expand_variable(rest, problem);
        } else if (rest[0] == '\\' && token.kind == TokenKind::STRING) {
            used = expand_escape(rest);
        } else {
            used = std::min(rest.find_first_of("$\\", 1), rest.size());
            scratch_.append(rest.substr(0, used));
        }
        rest.remove_prefix(used);
    }
    return scratch_;
}

/// "$name", "${name}" and "$$"; a "$" before anything else is itself. Returns how much of `text` was used.
std::size_t Symbols::expand_variable(std::string_view text, const char*& problem) {
    const bool braced = text.size() > 1 && text[1] == '{';
    const std::string_view name = leading_name(text.substr(braced ? 2 : 1));
    const std::size_t used = (braced ? 3 : 1) + name.size();
    if (name.empty() || (braced && (used > text.size() || text[used - 1] != '}'))) {
        scratch_ += '$';
        return text.starts_with("$$") ? 2 : 1;
    }
    const auto found = variables_.find(name);
    if (found == variables_.end()) {
        problem = "A variable is not known.";
    } else {
        append(found->second, problem);
    }
    return used;
}

std::size_t Symbols::expand_escape(std::string_view text) {
    if (text.size() > 1 && is_plain_escape(text[1])) {
        scratch_ += unescaped(text[1]);
        return 2;
    }
    unsigned value = 0;
    const bool is_hex = text.size() >= 4 && text[1] == 'x' &&
                        std::from_chars(text.data() + 2, text.data() + 4, value, 16).ptr == text.data() + 4;
    if (is_hex && value != 0) {
        scratch_ += static_cast<char>(value);
        return 4;
    }
    scratch_ += '\\';  // as in a Windows path
    return 1;
}

void Symbols::append(std::string_view text, const char*& problem) {
    if (text.size() > expansion_left_) {
        problem = "Variables make more text than is allowed.";
        return;
    }
    expansion_left_ -= text.size();
    scratch_ += text;
}

const char* Symbols::set_variable(std::string_view name, std::string_view value) {
    if (!is_name(name)) return "A variable's name holds letters, digits and \"_\" only.";
    if (value.size() > longest_variable) return "A variable's value is too long.";
    variables_[std::string(name)] = value;
    return nullptr;
}

bool Symbols::define_constant(std::string_view name, const SConfigValue& value) {
    return constants_.emplace(name, value).second;
}

const SConfigValue* Symbols::find_constant(std::string_view name) const {
    if (constants_.empty()) return nullptr;
    const auto found = constants_.find(name);
    return found == constants_.end() ? nullptr : &found->second;
}

}  // namespace kernel::config

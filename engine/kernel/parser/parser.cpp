// A text is a row of statements: a keyword and, in brackets, its parameters. After a mistake parsing goes on with the
// next parameter, bracket or line, whichever is the first that makes sense again; nothing here recurses but includes,
// whose depth and number are limited.
#include "engine/kernel/parser/parser.h"

#include <optional>
#include <string>

namespace kernel::config {

namespace {

std::optional<EConfigValue::TYPE> type_from_name(std::string_view name) {
    if (equal_names(name, "string")) return EConfigValue::STRING;
    if (equal_names(name, "int")) return EConfigValue::INT;
    if (equal_names(name, "float")) return EConfigValue::FLOAT;
    if (equal_names(name, "vec3")) return EConfigValue::VEC3;
    if (equal_names(name, "vec4")) return EConfigValue::VEC4;
    return std::nullopt;
}

}  // namespace

FileParser::FileParser(Session& session, std::string_view text, const char* file, const FileParser* parent)
    : session_(session),
      lexer_(text),
      file_(file),
      parent_(parent),
      depth_(parent == nullptr ? 0 : parent->depth_ + 1) {
    session_.symbols.add_source(text.size());
}

void FileParser::parse() {
    advance();
    while (current_.kind != TokenKind::END) statement();
}

void FileParser::advance() {
    current_ = lexer_.next();
    if (current_.problem != nullptr) error(current_, current_.problem);
}

void FileParser::error(const Token& where, std::string_view sentence, std::string_view detail) {
    session_.result.add_error(file_, where, sentence, detail);
}

std::string_view FileParser::resolve(const Token& token) {
    const char* problem = nullptr;
    const std::string_view text = session_.symbols.resolve(token, problem);
    if (problem != nullptr) error(token, problem, token.text);
    return text;
}

void FileParser::statement() {
    if (current_.kind == TokenKind::BANG) advance();
    if (current_.kind == TokenKind::END) return;
    if (current_.kind != TokenKind::WORD) {
        error(current_, "A keyword is expected here.", current_.text);
        lexer_.skip_line();
        return advance();
    }
    const Token name = current_;
    advance();
    directive_or_command(name);
}

void FileParser::directive_or_command(const Token& name) {
    if (const Keyword* const keyword = session_.keywords.find(name.text)) return command(*keyword, name);
    if (equal_names(name.text, "include")) return include(name);
    if (equal_names(name.text, "const")) return define_constant(name);
    if (equal_names(name.text, "set")) return set_variable(name);
    error(name, "This keyword is not known.", name.text);
    skip_statement();
}

/// Passes over the parameters of a statement that is not understood: to the closing bracket, or to what looks like the
/// next statement; without brackets, to the end of the line.
void FileParser::skip_statement() {
    int depth = 0;
    while (current_.kind != TokenKind::END) {
        if (current_.starts_line && (depth == 0 || starts_statement(current_))) return;
        if (current_.kind == TokenKind::OPEN) ++depth;
        if (current_.kind == TokenKind::CLOSE && --depth <= 0) return advance();
        advance();
    }
}

bool FileParser::starts_statement(const Token& token) const {
    return token.kind == TokenKind::BANG ||
           (token.kind == TokenKind::WORD && session_.keywords.find(token.text) != nullptr);
}

void FileParser::command(const Keyword& keyword, const Token& name) {
    Result& result = session_.result;
    const std::size_t first = result.values.size();
    result.values.resize(first + keyword.types.size());
    for_each_argument([&](std::size_t index, const Argument& given) {
        if (index < keyword.types.size()) {
            result.values[first + index] = bind(keyword.types[index], given);
        } else if (index == keyword.types.size()) {
            error(given.token, "This keyword has fewer parameters.", keyword.name);
        }
    });
    result.commands.push_back({.keyword = keyword.name,
                               .values = nullptr,
                               .value_count = static_cast<std::uint32_t>(keyword.types.size()),
                               .file = file_,
                               .line = name.line,
                               .column = name.column});
}

/// Calls `use` with the position and content of each parameter that is there.
template <class Use>
void FileParser::for_each_argument(Use use) {
    if (current_.kind != TokenKind::OPEN) return;
    const Token bracket = current_;
    advance();
    std::size_t index = 0;
    while (current_.kind != TokenKind::CLOSE) {
        if (current_.kind == TokenKind::END) return error(bracket, "This bracket is not closed.");
        if (current_.kind == TokenKind::COMMA) {
            ++index;
            advance();
            continue;
        }
        const Argument given = argument();
        use(index, given);
        if (current_.kind == TokenKind::COMMA || current_.kind == TokenKind::CLOSE) continue;
        if (!given.is_broken) error(current_, "A \",\" or \")\" is missing here.", current_.text);
        return skip_arguments(given.is_broken ? 2 : 1);
    }
    advance();
}

/// Gives up the rest of a statement inside `depth` brackets: to the last one that closes, or to the end of the line.
void FileParser::skip_arguments(int depth) {
    while (current_.kind != TokenKind::END && !current_.starts_line && depth > 0) {
        depth += (current_.kind == TokenKind::OPEN) - (current_.kind == TokenKind::CLOSE);
        advance();
    }
}

Argument FileParser::argument() {
    Argument out;
    out.token = current_;
    if (current_.kind == TokenKind::OPEN) {
        vector_parts(out);
        return out;
    }
    if (current_.kind == TokenKind::BANG) error(current_, "A value is expected here.", current_.text);
    advance();
    return out;
}

/// "(1, 2, 3)". Anything but words and commas ends it where it stands.
void FileParser::vector_parts(Argument& out) {
    out.is_vector = true;
    advance();
    while (current_.kind == TokenKind::WORD || current_.kind == TokenKind::COMMA) {
        if (current_.kind == TokenKind::WORD) {
            if (out.count < out.parts.size()) out.parts[out.count] = current_;
            ++out.count;
        }
        advance();
    }
    if (current_.kind == TokenKind::CLOSE) return advance();
    error(current_, "The bracket of a vector is not closed here.", current_.text);
    out.is_broken = true;
}

/// The parameters of a directive. False, with an error, when one is missing.
template <std::size_t Count>
bool FileParser::collect_arguments(std::array<Argument, Count>& out, const Token& name) {
    std::array<bool, Count> present{};
    for_each_argument([&](std::size_t index, const Argument& given) {
        if (index < Count) {
            out[index] = given;
            present[index] = given.is_vector || given.token.kind != TokenKind::BANG;
        }
    });
    for (const bool is_present : present) {
        if (is_present) continue;
        error(name, "A parameter is missing.", name.text);
        return false;
    }
    return true;
}

void FileParser::define_constant(const Token& name) {
    std::array<Argument, 3> given;
    if (!collect_arguments(given, name)) return;
    const Token& constant = given[1].token;
    const std::optional<EConfigValue::TYPE> type = type_from_name(given[0].token.text);
    if (!type) return error(given[0].token, "A type is int, float, string, vec3 or vec4.", given[0].token.text);
    if (!is_name(constant.text)) {
        return error(constant, "A constant's name holds letters, digits and \"_\" only.", constant.text);
    }
    const SConfigValue value = bind(*type, given[2]);
    if (value.type == EConfigValue::MISSING) return;
    if (!session_.symbols.define_constant(constant.text, value)) {
        error(constant, "This constant exists already.", constant.text);
    }
}

void FileParser::set_variable(const Token& name) {
    std::array<Argument, 2> given;
    if (!collect_arguments(given, name)) return;
    const Token& variable = given[0].token;
    if (given[0].is_vector || given[1].is_vector) return error(variable, "A variable holds text.", variable.text);
    const std::string_view value = resolve(given[1].token);
    if (const char* const problem = session_.symbols.set_variable(variable.text, value)) {
        error(variable, problem, variable.text);
    }
}

bool FileParser::is_included_by_itself(std::string_view name) const {
    for (const FileParser* at = this; at != nullptr; at = at->parent_) {
        if (equal_names(at->file_, name)) return true;
    }
    return false;
}

void FileParser::include(const Token& name) {
    Argument given;
    if (current_.kind == TokenKind::STRING) {  // !include "file"
        given = argument();
    } else {
        std::array<Argument, 1> only;
        if (!collect_arguments(only, name)) return;
        given = only[0];
    }
    const std::string file(given.is_vector ? std::string_view() : resolve(given.token));
    if (file.empty()) return error(given.token, "An include needs the name of a file.");
    if (is_included_by_itself(file)) return error(given.token, "A file includes itself.", file);
    if (depth_ >= max_include_depth) return error(given.token, "Includes are nested too deep.", file);
    if (session_.includes_left-- <= 0) return error(given.token, "There are too many includes.", file);
    std::string text;
    if (session_.reader == nullptr || !session_.reader(file.c_str(), text, session_.user)) {
        return error(given.token, "An included file cannot be read.", file);
    }
    if (text.size() > session_.included_left) return error(given.token, "Included files are too large.", file);
    session_.included_left -= text.size();
    FileParser(session_, text, session_.result.arena.store(file), this).parse();
}

}  // namespace kernel::config

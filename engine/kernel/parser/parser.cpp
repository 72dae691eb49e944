// A text is a row of statements: a keyword and, in brackets, its parameters. After a mistake parsing goes on with the
// next parameter, bracket or line, whichever is the first that makes sense again; nothing here recurses but includes,
// whose depth and number are limited.
#include <engine/kernel/parser.h>

#include <array>
#include <deque>
#include <memory>
#include <optional>
#include <vector>

#include "engine/kernel/parser/words.h"

namespace kernel {

namespace config {

namespace {

constexpr int max_include_depth = 10;
constexpr std::size_t max_errors = 1000;

/// What parsing collects.
struct Result {
    Keywords keywords;
    std::deque<std::string> texts;  // never move, so that all others may point at them
    std::vector<SConfigCommand> commands;
    std::vector<SConfigValue> values;  // of all commands, one after the other
    std::vector<SConfigError> errors;

    const char* store(std::string_view text) { return texts.emplace_back(text).c_str(); }
};

/// What all files of one parse share.
struct Session {
    Result& result;
    NameMap<SConfigValue> constants;
    Variables variables;
    ConfigReader reader = nullptr;
    void* user = nullptr;
    int includes_left = 256;
    std::uint64_t included_left = 64u << 20;
};

/// One parameter as it stands in the text: a word, a string, or a vector of words, whose token is its bracket.
struct Argument {
    Token token;
    bool is_broken = false;   // a vector without its end; the error is told already
    std::uint32_t count = 0;  // of a vector; may be more than are kept
    std::array<Token, 4> parts;

    bool is_vector() const { return token.kind == TokenKind::OPEN; }
};

/// Parses one text; an include is parsed by a parser of its own, which knows who asked for it.
class FileParser {
public:
    FileParser(Session& session, std::string_view text, const char* file, const FileParser* parent)
        : session_(session), lexer_(text), file_(file), parent_(parent) {
        session.variables.add_source(text.size());
    }

    void parse() {
        advance();
        while (current_.kind != TokenKind::END) statement();
    }

private:
    void statement() {
        if (current_.kind == TokenKind::BANG) advance();
        if (current_.kind == TokenKind::END) return;
        const Token name = current_;
        if (name.kind != TokenKind::WORD) {
            error(name, "A keyword is expected here.", name.text);
            lexer_.skip_line();
            return advance();
        }
        advance();
        if (const auto* const keyword = find_keyword(name.text)) return command(*keyword, name);
        if (equal_folded(name.text, "include")) return include(name);
        if (equal_folded(name.text, "const")) return define_constant(name);
        if (equal_folded(name.text, "set")) return set_variable(name);
        error(name, "This keyword is not known.", name.text);
        skip_statement();
    }

    /// Passes over the parameters of a statement that is not understood: to the closing bracket, or to what looks like
    /// the next statement; without brackets, to the end of the line.
    void skip_statement() {
        for (int depth = 0; current_.kind != TokenKind::END; advance()) {
            const bool may_start =
                current_.kind == TokenKind::BANG || (current_.kind == TokenKind::WORD && find_keyword(current_.text));
            if (current_.starts_line && (depth == 0 || may_start)) return;
            if (current_.kind == TokenKind::OPEN) ++depth;
            if (current_.kind == TokenKind::CLOSE && --depth <= 0) return advance();
        }
    }

    void command(const Keywords::value_type& keyword, const Token& name) {
        Result& result = session_.result;
        const std::vector<Type>& types = keyword.second;
        const std::size_t first = result.values.size();
        const std::size_t count = types.size();
        result.values.resize(first + count);
        for_each_argument([&](std::size_t index, const Argument& given) {
            if (index < count) result.values[first + index] = bind(types[index], given);
            if (index == count) error(given.token, "This keyword has fewer parameters.", keyword.first);
        });
        result.commands.push_back({.keyword = keyword.first.c_str(),
                                   .values = nullptr,  // linked when they stay where they are
                                   .value_count = static_cast<std::uint32_t>(count),
                                   .file = file_,
                                   .line = name.line,
                                   .column = name.column});
    }

    void define_constant(const Token& name) {
        const std::vector<Argument> given = arguments(name, 3);
        if (given.empty()) return;
        const Token& constant = given[1].token;
        const std::optional<Type> type = type_from_name(given[0].token.text);
        if (!type) return error(given[0].token, "A type is int, float, string, vec3 or vec4.", given[0].token.text);
        if (!is_name(constant.text)) {
            return error(constant, "A constant's name holds letters, digits and \"_\" only.", constant.text);
        }
        const SConfigValue value = bind(*type, given[2]);
        if (value.type == EConfigValue::MISSING) return;
        if (!session_.constants.emplace(constant.text, value).second) {
            error(constant, "This constant exists already.", constant.text);
        }
    }

    void set_variable(const Token& name) {
        const std::vector<Argument> given = arguments(name, 2);
        if (given.empty()) return;
        const Token& variable = given[0].token;
        if (given[0].is_vector() || given[1].is_vector())
            return error(variable, "A variable holds text.", variable.text);
        if (const char* const problem = session_.variables.set(variable.text, resolve(given[1].token))) {
            error(variable, problem, variable.text);
        }
    }

    void include(const Token& name) {
        // !include "file" needs no brackets.
        const std::vector<Argument> given =
            current_.kind == TokenKind::STRING ? std::vector<Argument>{argument()} : arguments(name, 1);
        if (given.empty()) return;
        const Token& where = given[0].token;
        const std::string file(given[0].is_vector() ? std::string_view() : resolve(where));
        if (file.empty()) return error(where, "An include needs the name of a file.");
        int depth = 0;
        for (const FileParser* at = this; at != nullptr; at = at->parent_, ++depth)
            if (equal_folded(at->file_, file)) return error(where, "A file includes itself.", file);
        if (depth > max_include_depth) return error(where, "Includes are nested too deep.", file);
        if (session_.includes_left-- <= 0) return error(where, "There are too many includes.", file);
        std::string text;
        if (session_.reader == nullptr || !session_.reader(file.c_str(), text, session_.user)) {
            return error(where, "An included file cannot be read.", file);
        }
        if (text.size() > session_.included_left) return error(where, "Included files are too large.", file);
        session_.included_left -= text.size();
        FileParser(session_, text, session_.result.store(file), this).parse();
    }

    /// Calls `use` with the position and content of each parameter that is there.
    template <class Use>
    void for_each_argument(Use use) {
        if (current_.kind != TokenKind::OPEN) return;
        const Token bracket = current_;
        std::size_t index = 0;
        for (advance(); current_.kind != TokenKind::CLOSE;) {
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
    void skip_arguments(int depth) {
        while (current_.kind != TokenKind::END && !current_.starts_line && depth > 0) {
            depth += (current_.kind == TokenKind::OPEN) - (current_.kind == TokenKind::CLOSE);
            advance();
        }
    }

    /// A word, a string or "(1, 2, 3)". In a vector anything but words and commas ends it where it stands.
    Argument argument() {
        Argument out;
        out.token = current_;
        if (current_.kind == TokenKind::BANG) error(current_, "A value is expected here.", current_.text);
        advance();
        if (!out.is_vector()) return out;
        for (; current_.kind == TokenKind::WORD || current_.kind == TokenKind::COMMA; advance()) {
            if (current_.kind == TokenKind::COMMA) continue;
            if (out.count < out.parts.size()) out.parts[out.count] = current_;
            ++out.count;
        }
        out.is_broken = current_.kind != TokenKind::CLOSE;
        if (out.is_broken) return error(current_, "The bracket of a vector is not closed here.", current_.text), out;
        return advance(), out;
    }

    /// The `count` parameters of a directive; none, with an error, when one is missing.
    std::vector<Argument> arguments(const Token& name, std::size_t count) {
        std::vector<Argument> all(count);
        for_each_argument([&](std::size_t index, const Argument& given) {
            if (index < count) all[index] = given;
        });
        for (const Argument& given : all) {
            if (given.token.kind != TokenKind::END && given.token.kind != TokenKind::BANG) continue;
            error(name, "A parameter is missing.", name.text);
            return {};
        }
        return all;
    }

    // From what stands in the text to typed values; a missing one where it does not fit.

    SConfigValue bind(Type type, const Argument& argument) {
        const Token& token = argument.token;
        if (argument.is_vector()) return bind_vector(type, argument);
        if (token.kind == TokenKind::BANG) return {};
        const std::string_view text = resolve(token);
        if (token.kind == TokenKind::WORD) {
            const auto constant = session_.constants.find(text);
            if (constant != session_.constants.end()) return bind_constant(type, constant->second, token);
        }
        return bind_text(type, text, token);
    }

    SConfigValue bind_constant(Type type, const SConfigValue& constant, const Token& where) {
        if (constant.type == type) return constant;
        if (constant.type != EConfigValue::INT || type != EConfigValue::FLOAT) {
            return no_value(where, "This constant is of another type.", where.text);
        }
        return {.type = type, .numbers = {static_cast<float>(constant.integer)}};
    }

    SConfigValue bind_text(Type type, std::string_view text, const Token& where) {
        if (type == EConfigValue::STRING) return {.type = type, .string = session_.result.store(text)};
        if (type == EConfigValue::INT) {
            if (const auto number = parse_int(text)) return {.type = type, .integer = *number};
            return no_value(where, "An integer of 32 bits is expected here.", text);
        }
        if (type == EConfigValue::FLOAT) {
            if (const auto number = parse_float(text)) return {.type = type, .numbers = {*number}};
            return no_value(where, "A number is expected here.", text);
        }
        return no_value(where, "A vector such as (1, 2, 3) is expected here.", text);
    }

    SConfigValue bind_vector(Type type, const Argument& argument) {
        const std::uint32_t count = type == EConfigValue::VEC3 ? 3 : type == EConfigValue::VEC4 ? 4 : 0;
        if (argument.is_broken) return {};
        if (count == 0) return no_value(argument.token, "No vector is expected here.");
        if (argument.count != count) return no_value(argument.token, "A vector has another length here.");
        SConfigValue value{.type = type};
        for (std::uint32_t i = 0; i < count; ++i) {
            const Token& part = argument.parts[i];
            const std::optional<float> number = parse_float(resolve(part));
            if (!number) return no_value(part, "A number is expected here.", part.text);
            value.numbers[i] = *number;
        }
        return value;
    }

    // What all of these stand on.

    void advance() {
        current_ = lexer_.next();
        if (current_.problem != nullptr) error(current_, current_.problem);
    }

    std::string_view resolve(const Token& token) {
        const char* problem = nullptr;
        const std::string_view text = session_.variables.resolve(token, problem);
        if (problem != nullptr) error(token, problem, token.text);
        return text;
    }

    const Keywords::value_type* find_keyword(std::string_view name) const {
        const auto found = session_.result.keywords.find(name);
        return found == session_.result.keywords.end() ? nullptr : &*found;
    }

    SConfigValue no_value(const Token& where, std::string_view sentence, std::string_view detail = {}) {
        error(where, sentence, detail);
        return {};
    }

    /// `detail`, where it is not empty, is quoted behind the sentence, cut to a line's worth.
    void error(const Token& where, std::string_view sentence, std::string_view detail = {}) {
        constexpr std::size_t longest_detail = 60;
        Result& result = session_.result;
        if (result.errors.size() >= max_errors) return;
        std::string text(sentence);
        if (!detail.empty()) {
            text += " (\"";
            for (const char c : detail.substr(0, longest_detail)) text += static_cast<unsigned char>(c) < ' ' ? '?' : c;
            text += detail.size() > longest_detail ? "...\")" : "\")";
        }
        result.errors.push_back(
            {.file = file_, .line = where.line, .column = where.column, .text = result.store(text)});
    }

    Session& session_;
    Lexer lexer_;
    Token current_;
    const char* const file_;
    const FileParser* const parent_;
};

}  // namespace

}  // namespace config

struct CConfigText::Data : config::Result {};

CConfigText::CConfigText(Data* data) : data_(data) {}
CConfigText::~CConfigText() { delete data_; }

CConfigText* CConfigText::Parse(const char* keywords, const Source& source) try {
    auto data = std::make_unique<Data>();
    data->keywords = config::read_keywords(keywords == nullptr ? "" : keywords);
    config::Session session{
        .result = *data, .constants = {}, .variables = {}, .reader = source.reader, .user = source.user};
    const std::string_view text(source.text == nullptr ? "" : source.text, source.text == nullptr ? 0 : source.length);
    const char* const file = data->store(source.file == nullptr ? "" : source.file);
    config::FileParser(session, text, file, nullptr).parse();
    const SConfigValue* values = data->values.data();
    for (SConfigCommand& command : data->commands) {
        command.values = values;
        values += command.value_count;
    }
    auto* const parsed = new CConfigText(data.get());
    static_cast<void>(data.release());
    return parsed;
} catch (...) {  // no memory, or a reader of the host that threw
    return nullptr;
}

void CConfigText::Release() { delete this; }

std::uint32_t CConfigText::CommandCount() const { return static_cast<std::uint32_t>(data_->commands.size()); }
const SConfigCommand& CConfigText::Command(std::uint32_t index) const { return data_->commands[index]; }
std::uint32_t CConfigText::ErrorCount() const { return static_cast<std::uint32_t>(data_->errors.size()); }
const SConfigError& CConfigText::Error(std::uint32_t index) const { return data_->errors[index]; }

}  // namespace kernel

#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include <engine/kernel/parser.h>

#include "engine/kernel/parser/keyword_table.h"
#include "engine/kernel/parser/lexer.h"
#include "engine/kernel/parser/result.h"
#include "engine/kernel/parser/symbols.h"

namespace kernel::config {

inline constexpr int max_include_depth = 10;
inline constexpr int max_includes = 256;
inline constexpr std::uint64_t max_included_bytes = 64u << 20;

/// What all files of one parse share.
struct Session {
    const KeywordTable& keywords;
    Result& result;
    Symbols symbols;
    ConfigReader reader = nullptr;
    void* user = nullptr;
    int includes_left = max_includes;
    std::uint64_t included_left = max_included_bytes;
};

/// One parameter as it stands in the text: a word, a string, or a vector of words.
struct Argument {
    Token token;  // of a vector: its bracket
    bool is_vector = false;
    bool is_broken = false;   // a vector without its end; the error is told already
    std::uint32_t count = 0;  // of a vector; may be more than are kept
    std::array<Token, 4> parts;
};

/// Parses one text; an include is parsed by a parser of its own, which knows who asked for it.
class FileParser {
public:
    FileParser(Session& session, std::string_view text, const char* file, const FileParser* parent);
    void parse();

private:
    void statement();
    void directive_or_command(const Token& name);
    void command(const Keyword& keyword, const Token& name);
    void include(const Token& name);
    void define_constant(const Token& name);
    void set_variable(const Token& name);
    void skip_statement();
    bool starts_statement(const Token& token) const;

    template <class Use>
    void for_each_argument(Use use);
    template <std::size_t Count>
    bool collect_arguments(std::array<Argument, Count>& out, const Token& name);
    Argument argument();
    void vector_parts(Argument& out);
    void skip_arguments(int depth);

    SConfigValue bind(EConfigValue::TYPE type, const Argument& argument);
    SConfigValue bind_constant(EConfigValue::TYPE type, const SConfigValue& constant, const Token& where);
    SConfigValue bind_text(EConfigValue::TYPE type, std::string_view text, const Token& where);
    SConfigValue bind_vector(EConfigValue::TYPE type, const Argument& argument);

    std::string_view resolve(const Token& token);
    void advance();
    void error(const Token& where, std::string_view sentence, std::string_view detail = {});
    bool is_included_by_itself(std::string_view name) const;

    Session& session_;
    Lexer lexer_;
    Token current_;
    const char* const file_;
    const FileParser* const parent_;
    const int depth_;
};

}  // namespace kernel::config

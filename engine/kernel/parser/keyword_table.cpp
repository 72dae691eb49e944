#include "engine/kernel/parser/keyword_table.h"

#include "engine/kernel/parser/lexer.h"

namespace kernel::config {

namespace {

EConfigValue::TYPE type_from_letter(std::string_view letter) {
    switch (letter.empty() ? 's' : lower(letter[0])) {
        case 'i':
            return EConfigValue::INT;
        case 'f':
            return EConfigValue::FLOAT;
        case 'v':
            return EConfigValue::VEC3;
        case 'q':
            return EConfigValue::VEC4;
        default:
            return EConfigValue::STRING;
    }
}

/// The type letters up to the closing bracket.
std::vector<EConfigValue::TYPE> read_types(Lexer& lexer) {
    std::vector<EConfigValue::TYPE> types;
    for (Token token = lexer.next(); token.kind != TokenKind::END && token.kind != TokenKind::CLOSE;
         token = lexer.next()) {
        if (token.kind == TokenKind::WORD) types.push_back(type_from_letter(token.text));
    }
    return types;
}

}  // namespace

KeywordTable::KeywordTable(std::string_view text, TextArena& arena) {
    Lexer lexer(text);
    Keyword* current = nullptr;
    for (Token token = lexer.next(); token.kind != TokenKind::END; token = lexer.next()) {
        if (token.kind == TokenKind::WORD) {
            current = &keywords_[std::string(token.text)];
            current->name = arena.store(token.text);
        } else if (token.kind == TokenKind::OPEN && current != nullptr) {
            current->types = read_types(lexer);
        }
    }
}

const Keyword* KeywordTable::find(std::string_view name) const {
    const auto found = keywords_.find(name);
    return found == keywords_.end() ? nullptr : &found->second;
}

}  // namespace kernel::config

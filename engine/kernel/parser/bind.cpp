// From what stands in the text to typed values.
#include <optional>

#include "engine/kernel/parser/numbers.h"
#include "engine/kernel/parser/parser.h"

namespace kernel::config {

namespace {

std::uint32_t part_count(EConfigValue::TYPE type) {
    return type == EConfigValue::VEC3 ? 3 : type == EConfigValue::VEC4 ? 4 : 0;
}

}  // namespace

SConfigValue FileParser::bind(EConfigValue::TYPE type, const Argument& argument) {
    if (argument.is_vector) return bind_vector(type, argument);
    if (argument.token.kind == TokenKind::BANG) return {};
    const std::string_view text = resolve(argument.token);
    if (argument.token.kind == TokenKind::WORD) {
        if (const SConfigValue* const constant = session_.symbols.find_constant(text)) {
            return bind_constant(type, *constant, argument.token);
        }
    }
    return bind_text(type, text, argument.token);
}

SConfigValue FileParser::bind_constant(EConfigValue::TYPE type, const SConfigValue& constant, const Token& where) {
    if (constant.type == type) return constant;
    SConfigValue value;
    if (constant.type == EConfigValue::INT && type == EConfigValue::FLOAT) {
        value.type = type;
        value.numbers[0] = static_cast<float>(constant.integer);
        return value;
    }
    error(where, "This constant is of another type.", where.text);
    return value;
}

SConfigValue FileParser::bind_text(EConfigValue::TYPE type, std::string_view text, const Token& where) {
    SConfigValue value;
    if (type == EConfigValue::STRING) {
        value.string = session_.result.arena.store(text);
    } else if (type == EConfigValue::INT) {
        const std::optional<std::int32_t> number = parse_int(text);
        if (!number) return error(where, "An integer of 32 bits is expected here.", text), value;
        value.integer = *number;
    } else if (type == EConfigValue::FLOAT) {
        const std::optional<float> number = parse_float(text);
        if (!number) return error(where, "A number is expected here.", text), value;
        value.numbers[0] = *number;
    } else {
        return error(where, "A vector such as (1, 2, 3) is expected here.", text), value;
    }
    value.type = type;
    return value;
}

SConfigValue FileParser::bind_vector(EConfigValue::TYPE type, const Argument& argument) {
    SConfigValue value;
    if (argument.is_broken) return value;
    if (argument.count == 0 || argument.count != part_count(type)) {
        error(argument.token,
              part_count(type) == 0 ? "No vector is expected here." : "A vector has another length here.");
        return value;
    }
    for (std::uint32_t i = 0; i < argument.count; ++i) {
        const std::optional<float> number = parse_float(resolve(argument.parts[i]));
        if (!number)
            return error(argument.parts[i], "A number is expected here.", argument.parts[i].text), SConfigValue{};
        value.numbers[i] = *number;
    }
    value.type = type;
    return value;
}

}  // namespace kernel::config

#include "engine/kernel/parser/result.h"

#include <string>

namespace kernel::config {

void Result::add_error(const char* file, const Token& where, std::string_view sentence, std::string_view detail) {
    constexpr std::size_t longest_detail = 60;
    if (errors.size() >= max_errors) return;
    std::string text(sentence);
    if (!detail.empty()) {
        text += " (\"";
        for (const char c : detail.substr(0, longest_detail)) text += static_cast<unsigned char>(c) < ' ' ? '?' : c;
        text += detail.size() > longest_detail ? "...\")" : "\")";
    }
    errors.push_back({.file = file, .line = where.line, .column = where.column, .text = arena.store(text)});
}

void Result::link_values() {
    const SConfigValue* next = values.data();
    for (SConfigCommand& command : commands) {
        command.values = next;
        next += command.value_count;
    }
}

}  // namespace kernel::config

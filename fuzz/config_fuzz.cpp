// Configuration text of any bytes, which may include itself in pieces.
#include <cstddef>
#include <cstdint>
#include <string>

#include <engine/kernel/parser.h>

#include "fuzz/require.h"

namespace {

/// Any name is a file: what follows the first byte of the name in the input, so that includes nest in many ways.
bool read_piece(const char* name, std::string& out, void* user) {
    const std::string& whole = *static_cast<const std::string*>(user);
    out = whole.substr(whole.size() * static_cast<unsigned char>(name[0]) / 256);
    return true;
}

std::size_t touch(const char* text) { return text == nullptr ? 0 : std::string(text).size(); }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string text(reinterpret_cast<const char*>(data), size);
    kernel::CConfigText* const parsed = kernel::CConfigText::Parse(
        "!Permit(s,i,i)\r\n!Level(s)\r\n!Number(f)\r\n!Place(v,q)\r\n!Stop()",
        {.text = text.data(), .length = text.size(), .file = "main", .reader = read_piece, .user = &text});
    if (parsed == nullptr) return 0;
    std::size_t characters = 0;
    for (std::uint32_t i = 0; i < parsed->CommandCount(); ++i) {
        const kernel::SConfigCommand& command = parsed->Command(i);
        require(command.line >= 1 && command.column >= 1);
        for (std::uint32_t at = 0; at < command.value_count; ++at) {
            const kernel::SConfigValue& value = command.values[at];
            require((value.type == kernel::EConfigValue::STRING) == (value.string != nullptr));
            require(value.type == kernel::EConfigValue::INT || value.integer == 0);
            characters += touch(value.string);
        }
    }
    for (std::uint32_t i = 0; i < parsed->ErrorCount(); ++i) characters += touch(parsed->Error(i).text);
    require(characters <= 400u * 65536u + 300u * 20u * (size + 100u) * 20u);
    parsed->Release();
    return 0;
}

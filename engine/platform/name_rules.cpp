#include <string_view>

#include "engine/platform/files.h"
#include "engine/platform/folding.h"

namespace platform {
namespace {

bool equals(std::string_view text, std::string_view lower_case) {
    return text.size() == lower_case.size() && equal_folded(text.data(), lower_case.data(), text.size());
}

/// Windows gives these to devices whatever extension follows: "nul", "NUL.txt", "com1 .log".
bool is_device_name(std::string_view name) {
    std::string_view stem = name.substr(0, name.find('.'));
    while (!stem.empty() && stem.back() == ' ') stem.remove_suffix(1);
    for (const std::string_view device : {"con", "prn", "aux", "nul", "conin$", "conout$"}) {
        if (equals(stem, device)) return true;
    }
    const bool numbered = stem.size() == 4 && stem[3] >= '1' && stem[3] <= '9';
    return numbered && (equals(stem.substr(0, 3), "com") || equals(stem.substr(0, 3), "lpt"));
}

bool is_forbidden(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7F || std::string_view("<>:\"|?*/\\").find(c) != std::string_view::npos;
}

}  // namespace

bool is_valid_name(const char* name, std::size_t length) {
    constexpr std::size_t longest_name = 255;
    if (length == 0 || length > longest_name) return false;
    const std::string_view text(name, length);
    if (text.back() == '.' || text.back() == ' ') return false;
    for (const char c : text) {
        if (is_forbidden(c)) return false;
    }
    return !is_device_name(text);
}

}  // namespace platform

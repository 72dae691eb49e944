#pragma once

#include <string_view>

#include "engine/platform/folding.h"

namespace platform {

/// What every directory holds: itself and the one above.
constexpr bool is_dots(std::string_view name) { return name == "." || name == ".."; }

/// is_valid_name for any kind of characters.
template <class Char>
class NameRules {
public:
    using View = std::basic_string_view<Char>;

    static bool allow(View name) {
        constexpr std::size_t longest_name = 255;
        if (name.empty() || name.size() > longest_name || name.back() == '.' || name.back() == ' ') return false;
        for (const Char c : name) {
            if (is_forbidden(c)) return false;
        }
        return !is_device(name);
    }

private:
    static bool is_forbidden(Char c) {
        return (c >= 0 && c < 0x20) || c == 0x7F ||
               (c < 0x7F && std::string_view("<>:\"|?*/\\").find(static_cast<char>(c)) != std::string_view::npos);
    }

    static bool equals(View text, std::string_view lower_case) {
        if (text.size() != lower_case.size()) return false;
        for (std::size_t i = 0; i < text.size(); ++i) {
            if (text[i] < 0 || text[i] > 0x7F || fold(static_cast<char>(text[i])) != lower_case[i]) return false;
        }
        return true;
    }

    /// Windows gives these to devices whatever extension follows: "nul", "NUL.txt", "com1 .log".
    static bool is_device(View name) {
        View stem = name.substr(0, name.find('.'));
        while (!stem.empty() && stem.back() == ' ') stem.remove_suffix(1);
        for (const std::string_view device : {"con", "prn", "aux", "nul", "conin$", "conout$"}) {
            if (equals(stem, device)) return true;
        }
        const bool is_numbered = stem.size() == 4 && stem[3] >= '1' && stem[3] <= '9';
        return is_numbered && (equals(stem.substr(0, 3), "com") || equals(stem.substr(0, 3), "lpt"));
    }
};

}  // namespace platform

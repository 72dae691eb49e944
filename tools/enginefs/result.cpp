#include "result.h"

#include <cinttypes>
#include <cstdlib>

#include "names.h"
#include "report.h"
#include "terminal.h"

namespace {

bool as_json = false;
bool as_zeros = false;
bool has_colors = false;
bool has_escapes = false;

bool takes_colors(const std::string& color, int stream) {
    const char* const no_color = std::getenv("NO_COLOR");
    const bool is_wanted = no_color == nullptr || no_color[0] == '\0';
    return color == "always" || (color == "auto" && is_wanted && shows_colors(stream));
}

std::string column_text(const Field& field) {
    if (field.width == Field::hexadecimal) return formatted("%08" PRIx32, field.value.get<std::uint32_t>());
    const std::string text = field.value.is_null()     ? "-"
                             : field.value.is_string() ? field.value.get<std::string>()
                                                       : field.value.dump();
    return formatted("%*s", field.width, text.c_str());
}

std::string line_of(const Fields& fields) {
    std::string line;
    for (const Field& field : fields) {
        if (field.width == 0) continue;
        line += line.empty() ? "" : field.width > 0 ? " " : "  ";
        line += column_text(field);
    }
    return line + (line.empty() ? "" : "  ") + shown(fields[0].value.get<std::string>());
}

}  // namespace

void set_style(const Style& style) {
    as_json = style.json;
    as_zeros = style.zero;
    has_colors = takes_colors(style.color, 1);
    has_escapes = has_colors || is_terminal(1);
    color_errors(takes_colors(style.color, 2));
}

std::string shown(const std::string& name, Color color) {
    constexpr const char* codes[] = {"", "\x1b[1;34m", "\x1b[36m", "\x1b[2m"};
    const std::string text = has_escapes ? printable(name) : name;
    return has_colors && color != Color::PLAIN ? codes[static_cast<int>(color)] + text + "\x1b[0m" : text;
}

bool print_json(const Json& json) { return print(json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n"); }

Json json_or_null(std::uint64_t size) { return size != failed ? Json(size) : Json(); }
Json json_or_null(const std::string& text) { return !text.empty() ? Json(text) : Json(); }

bool shows_json() { return as_json; }

void Listing::add(const Fields& fields, const std::string& line, const std::string& alone) {
    if (as_json) {
        Json& object = items_.emplace_back(Json::object());
        for (const Field& field : fields) object[field.key] = field.value;
    } else if (as_zeros) {
        print((alone.empty() ? fields[0].value.get<std::string>() : alone) + '\0');
    } else {
        print((line.empty() ? line_of(fields) : line) + "\n");
    }
}

void Listing::note(const std::string& line) {
    if (!as_json && !as_zeros) print(line + "\n");
}

bool Listing::finish() const { return as_json ? print_json(items_) : print(""); }

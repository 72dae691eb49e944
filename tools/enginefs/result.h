#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include <nlohmann/json.hpp>

using Json = nlohmann::ordered_json;

/// How results are shown.
struct Style {
    bool json = false;           // what is listed, as one array of objects
    bool zero = false;           // or the first text of each alone, with a zero byte behind it
    std::string color = "auto";  // or "always" or "never"
};
void set_style(const Style& style);

/// A name as it is printed in a line: on a terminal its control characters are escaped, and it may have a colour.
enum class Color { PLAIN, DIRECTORY, PACK, SHADOWED };
std::string shown(const std::string& name, Color color = Color::PLAIN);

/// Names are bytes; what is no UTF-8 is shown with replacement characters. False when it cannot be written.
bool print_json(const Json& json);

/// A size or text as JSON, and a size in a line; null and "-" where it is not known.
Json json_or_null(std::uint64_t size);
Json json_or_null(const std::string& text);
std::string size_text(std::uint64_t size);

/// What a command lists, in the style that is set.
class Listing {
public:
    /// An item as a line; `first` of it alone; and what makes the object, since destroying one takes memory.
    void add(const std::string& first, const std::string& line, const std::function<Json()>& object);
    /// A line for readers alone, such as a sum.
    void note(const std::string& line);
    bool finish() const;

private:
    Json items_ = Json::array();
};

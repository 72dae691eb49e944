#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

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

/// A size or text as JSON; null where it is not known.
Json json_or_null(std::uint64_t size);
Json json_or_null(const std::string& text);

/// Items as a JSON array where the style is JSON; null elsewhere, since destroying an array takes memory.
bool shows_json();
template <class Items, class Make = std::identity>
Json json_array(const Items& items, const Make& make = {}) {
    Json array = shows_json() ? Json::array() : Json();
    for (auto item = items.begin(); shows_json() && item != items.end(); ++item) array.push_back(make(*item));
    return array;
}

/// What is known of an item: what JSON calls it, and how wide its column is in a line; below 0: from the left, 0: none.
struct Field {
    static constexpr int hexadecimal = -1000;

    const char* key;
    Json value;
    int width = 0;
};
using Fields = std::vector<Field>;

/// What a command lists, in the style that is set.
class Listing {
public:
    /// An item by its fields, the first of which is its name. Its line is that of its columns with the name behind them,
    /// unless there is a `line`; alone of it, where that is asked for, is the name, or `alone`.
    void add(const Fields& fields, const std::string& line = "", const std::string& alone = "");
    /// A line for readers alone, such as a sum.
    void note(const std::string& line);
    bool finish() const;

private:
    Json items_ = Json::array();
};

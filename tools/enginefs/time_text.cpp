#include "time_text.h"

#include <charconv>
#include <chrono>

namespace {

constexpr std::int64_t per_second = 10'000'000;
constexpr std::int64_t seconds_to_1970 = 11'644'473'600;
constexpr std::int64_t last_second = 253'402'300'799;  // 9999-12-31 23:59:59

std::optional<std::int64_t> from_unix(std::int64_t seconds) {
    if (seconds <= -seconds_to_1970 || seconds > last_second) return std::nullopt;
    return (seconds + seconds_to_1970) * per_second;
}

std::optional<std::int64_t> parse_unix(const std::string& text) {
    std::int64_t seconds = 0;
    const auto [end, error] = std::from_chars(text.data() + 1, text.data() + text.size(), seconds);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return from_unix(seconds);
}

/// Whether `text` has digits where `shape` has "0", and the same character elsewhere ("T" for a blank, too).
bool has_shape(const std::string& text, const std::string& shape) {
    if (text.size() != shape.size()) return false;
    for (std::size_t i = 0; i < shape.size(); ++i) {
        const bool digit = text[i] >= '0' && text[i] <= '9';
        if (shape[i] == '0' ? !digit : text[i] != shape[i] && !(shape[i] == ' ' && text[i] == 'T')) return false;
    }
    return true;
}

}  // namespace

std::int64_t time_now() {
    const auto since = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::nanoseconds>(since).count() / 100 + seconds_to_1970 * per_second;
}

std::optional<std::int64_t> parse_time(const std::string& text) {
    if (!text.empty() && text[0] == '@') return parse_unix(text);
    if (!has_shape(text, "0000-00-00") && !has_shape(text, "0000-00-00 00:00:00")) return std::nullopt;
    const auto number = [&text](std::size_t at, std::size_t count) {
        return at < text.size() ? std::stoi(text.substr(at, count)) : 0;
    };
    using namespace std::chrono;
    const year_month_day date{year{number(0, 4)}, month{static_cast<unsigned>(number(5, 2))},
                              day{static_cast<unsigned>(number(8, 2))}};
    if (!date.ok() || number(11, 2) > 23 || number(14, 2) > 59 || number(17, 2) > 59) return std::nullopt;
    const std::int64_t days = sys_days(date).time_since_epoch().count();
    return from_unix(days * 86400 + number(11, 2) * 3600 + number(14, 2) * 60 + number(17, 2));
}

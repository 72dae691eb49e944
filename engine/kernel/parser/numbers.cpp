#include "engine/kernel/parser/numbers.h"

#include <charconv>
#include <cmath>
#include <limits>

namespace kernel::config {

namespace {

/// Takes a sign off; true when it is "-".
bool take_sign(std::string_view& text) {
    if (text.empty() || (text[0] != '-' && text[0] != '+')) return false;
    const bool negative = text[0] == '-';
    text.remove_prefix(1);
    return negative;
}

bool take_hex_prefix(std::string_view& text) {
    if (!text.starts_with("0x") && !text.starts_with("0X")) return false;
    text.remove_prefix(2);
    return true;
}

bool starts_with_sign(std::string_view text) { return !text.empty() && (text[0] == '-' || text[0] == '+'); }

}  // namespace

std::optional<std::int32_t> parse_int(std::string_view text) {
    const bool negative = take_sign(text);
    const bool hex = take_hex_prefix(text);
    if (starts_with_sign(text)) return std::nullopt;
    std::uint64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, hex ? 16 : 10);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    // Hexadecimal digits may spell all 32 bits, such as a mask; decimal ones must be in the signed range.
    const std::uint64_t positive_limit = hex ? 0xFFFFFFFFu : 0x7FFFFFFFu;
    if (value > (negative ? 0x80000000u : positive_limit)) return std::nullopt;
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(negative ? 0 - value : value));
}

std::optional<float> parse_float(std::string_view text) {
    if (!text.empty() && text[0] == '+') {
        text.remove_prefix(1);
        if (starts_with_sign(text)) return std::nullopt;
    }
    float value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || !std::isfinite(value)) return std::nullopt;
    return value;
}

}  // namespace kernel::config

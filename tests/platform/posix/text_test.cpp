#include "engine/platform/text.h"

#include <gmock/gmock.h>

#include <string>

namespace platform {
namespace {

std::u32string widen(const std::string& text) {
    std::wstring wide(text.size(), L'\0');
    wide.resize(narrow_to_wide(text.data(), text.size(), wide.data()));
    return std::u32string(wide.begin(), wide.end());
}

TEST(PosixText, ReadsUtf8AndTakesOtherBytesOneForOne) {
    const struct {
        const char* label;
        std::string text;
        std::u32string expected;
    } rows[] = {
        {"nothing", "", U""},
        {"a zero", std::string("a\0z", 3), std::u32string(U"a\0z", 3)},
        {"one to four bytes", "a\u00e4\u20ac\U0001F600z", U"a\u00e4\u20ac\U0001F600z"},
        {"the largest character", "\xF4\x8F\xBF\xBF", U"\U0010FFFF"},
        {"beyond the largest", "\xF4\x90\x80\x80", U"\u00f4\u0090\u0080\u0080"},
        {"another code page",
         "Stra\xDF"
         "e",
         U"Stra\u00dfe"},
        {"a continuation alone", "\x80x", U"\u0080x"},
        {"cut at the end", "x\xE2\x82", U"x\u00e2\u0082"},
        {"cut inside", "\xE2\x82x", U"\u00e2\u0082x"},
        {"longer than needed", "\xC0\xAF\xE0\x80\xAF", U"\u00c0\u00af\u00e0\u0080\u00af"},
        {"a surrogate", "\xED\xA0\x80", U"\u00ed\u00a0\u0080"},
        {"no lead byte at all", "\xFF\xFE", U"\u00ff\u00fe"},
    };
    for (const auto& row : rows) EXPECT_EQ(widen(row.text), row.expected) << row.label;
}

}  // namespace
}  // namespace platform

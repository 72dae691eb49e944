#include <cstdlib>

#include "tests/access/kit.h"

namespace {

using namespace std::string_literals;

class WholeFile : public OverMemory {
protected:
    static std::wstring load_wide(const char* path) {
        wchar_t* const text = fs::load_wide_string(path);
        if (text == nullptr) return L"(none)";
        std::wstring out = text;
        std::free(text);
        return out;
    }

    MemorySource* const source_ = mount_memory("/a/");
};

TEST_F(WholeFile, IsReadIntoANewBlockOrTheCallersBuffer) {
    source_->add("x", "a\0b"s);
    source_->add("empty", "");
    std::uint64_t size = 99;
    for (const auto& [name, text] : {std::pair("X", "a\0b"s), std::pair("empty", ""s)}) {
        void* const data = fs::read(name, &size);
        ASSERT_NE(data, nullptr);
        EXPECT_EQ(std::string(static_cast<char*>(data), size), text);
        std::free(data);
    }
    std::free(fs::read("x", nullptr));
    size = 99;
    EXPECT_TRUE(fs::read("missing", &size) == nullptr && fs::read(nullptr, &size) == nullptr);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(fs::read(nullptr, &size, std::uint64_t{1}), ~std::uint64_t{0});
    char buffer[8] = "-------";
    fs::read(buffer, "x", &size);
    fs::read(buffer, "missing", &size);
    EXPECT_EQ(size, 3u) << "the second left it alone";
    EXPECT_EQ(std::string(buffer, 8), "a\0b----\0"s);
    fs::read(static_cast<void*>(nullptr), "x", &size);
    fs::read(buffer, "x", static_cast<std::uint64_t*>(nullptr));
}

TEST_F(WholeFile, ComesBackAsItWasSaved) {
    fs::string text = "kept";
    EXPECT_TRUE(fs::save_text_file("", "empty.txt") && fs::load_text_file(text, "empty.txt"));
    EXPECT_EQ(text, "kept");
    EXPECT_TRUE(fs::save_text_file("one\r\ntwo", "T.txt") && fs::load_text_file(text, "t.txt"));
    EXPECT_FALSE(fs::load_text_file(text, "missing") || fs::save_text_file("x", ""));
    EXPECT_EQ(text, "one\r\ntwo");

    void* data = source_;
    std::uint64_t size = 99;
    EXPECT_FALSE(fs::load_binary_file(&data, &size, "missing"));
    EXPECT_TRUE(data == nullptr && size == 0);
    EXPECT_TRUE(fs::save_binary_file("\0\1\2", 3, "b.bin") && fs::load_binary_file(&data, &size, "b.bin"));
    EXPECT_EQ(std::string(static_cast<char*>(data), size), "\0\1\2"s);
    std::free(data);
    EXPECT_TRUE(fs::save_binary_file(nullptr, 0, "b.bin"));
    EXPECT_EQ(source_->content("b.bin"), "");
    EXPECT_FALSE(fs::save_binary_file(nullptr, 5, "b.bin") || fs::load_binary_file(nullptr, &size, "b.bin"));
}

TEST_F(WholeFile, TextIsSavedUnderTheTimeOfDay) {
    EXPECT_TRUE(fs::save_text_file("dated", "Log", "TXT", "Out"));
    ASSERT_EQ(source_->made.size(), 1u);
    EXPECT_THAT(source_->made[0], testing::MatchesRegex("create_write Out/Log_20......_......\\.TXT"));
    EXPECT_FALSE(fs::save_text_file("x", std::string(300, 'n').c_str(), "txt", "out"));
    EXPECT_FALSE(fs::save_text_file("x", nullptr, nullptr, "d"));  // "d/_DATE_TIME." could not be kept on Windows
}

TEST_F(WholeFile, WideTextIsMarkedUnitsOrNarrowText) {
    const std::wstring half_a(1, static_cast<wchar_t>(0xD83D)), half_b(1, static_cast<wchar_t>(0xDE00));
    const std::pair<std::string, std::wstring> rows[] = {
        {"", L""},
        {"x", L""},  // a file of one byte is not looked at
        {"\xFF\xFE", L""},
        {"\xFF\xFE\x61\0b\0"s, L"ab"},
        {"\xFF\xFE\x61\0b"s, L"a"},  // half a unit is none
        {"\xFF\xFE\x3D\xD8\x00\xDE"s, L"\U0001F600"},
        {"\xFF\xFE\x3D\xD8\x61\0"s, half_a + L"a"},
        {"\xFF\xFE\x00\xDE"s, half_b},
        {"narrow", L"narrow"},
#if !defined(_WIN32)  // where narrow text is UTF-8, and bytes that are none are taken one for one
        {"a\0z"s, L"a"},
        {"a\u00e4\u20ac\U0010FFFFz", L"a\u00e4\u20ac\U0010FFFFz"},
        {"x\xE2\x82", L"x\u00e2\x82"},
        {"\xC0\xAF\xE0\x80\xAF\xF4\x90\x80\x80", L"\u00c0\u00af\u00e0\x80\u00af\u00f4\x90\x80\x80"},
        {"\xED\xA0\x80\xFF", L"\u00ed\u00a0\x80\u00ff"},
#endif
    };
    for (const auto& [bytes, text] : rows) {
        source_->add("w.txt", bytes);
        EXPECT_EQ(load_wide("w.txt"), text) << testing::PrintToString(bytes);
    }
    EXPECT_EQ(load_wide("missing"), L"(none)");
}

TEST_F(WholeFile, WideTextIsSavedAsUnits) {
    EXPECT_TRUE(fs::save_wide_string(L"a\u20AC\U0001F600", "w.txt") && fs::save_wide_string(L"", "e.txt"));
    EXPECT_EQ(source_->content("w.txt"), "\xFF\xFE\x61\0\xAC\x20\x3D\xD8\x00\xDE"s);
    EXPECT_EQ(source_->content("e.txt"), "\xFF\xFE");
    EXPECT_FALSE(fs::save_wide_string(L"x", nullptr));
}

}  // namespace

#include <engine/filesystem/access.h>

#include <gmock/gmock.h>

#include <cstdlib>
#include <string>

#include "tests/support/memory_source.h"

namespace {

using test::MemorySource;
using namespace std::string_literals;

class WholeFile : public testing::Test {
protected:
    void SetUp() override { source_ = test::mount_memory("/a/"); }
    void TearDown() override { test::unmount_all(); }

    static std::wstring load_wide(const char* path) {
        wchar_t* const text = fs::load_wide_string(path);
        if (text == nullptr) return L"(none)";
        std::wstring out = text;
        std::free(text);
        return out;
    }

    MemorySource* source_ = nullptr;
};

TEST_F(WholeFile, IsReadIntoANewBlock) {
    source_->add("x", "a\0b"s);
    source_->add("empty", "");
    for (const auto& [name, text] : {std::pair("X", "a\0b"s), std::pair("empty", ""s)}) {
        std::uint64_t size = 99;
        void* const data = fs::read(name, &size);
        ASSERT_NE(data, nullptr);
        EXPECT_EQ(std::string(static_cast<char*>(data), size), text);
        std::free(data);
    }
    std::free(fs::read("x", nullptr));
    std::uint64_t size = 99;
    EXPECT_EQ(fs::read("missing", &size), nullptr);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(fs::read(nullptr, &size), nullptr);
    EXPECT_EQ(fs::read(nullptr, &size, std::uint64_t{1}), ~std::uint64_t{0});
}

TEST_F(WholeFile, IsReadIntoTheCallersBuffer) {
    source_->add("x", "abc");
    char buffer[8] = "-------";
    std::uint64_t size = 99;
    fs::read(buffer, "missing", &size);
    EXPECT_EQ(size, 99u);
    EXPECT_STREQ(buffer, "-------");
    fs::read(buffer, "x", &size);
    EXPECT_EQ(size, 3u);
    EXPECT_STREQ(buffer, "abc----");
    fs::read(static_cast<void*>(nullptr), "x", &size);
    fs::read(buffer, "x", static_cast<std::uint64_t*>(nullptr));
}

TEST_F(WholeFile, TextComesBackAsItWasSaved) {
    fs::string text = "kept";
    EXPECT_TRUE(fs::save_text_file("", "empty.txt"));
    EXPECT_TRUE(fs::load_text_file(text, "empty.txt"));
    EXPECT_EQ(text, "kept");
    EXPECT_TRUE(fs::save_text_file("one\r\ntwo", "T.txt"));
    EXPECT_TRUE(fs::load_text_file(text, "t.txt"));
    EXPECT_EQ(text, "one\r\ntwo");
    EXPECT_FALSE(fs::load_text_file(text, "missing"));
    EXPECT_EQ(text, "one\r\ntwo");
    EXPECT_FALSE(fs::save_text_file("x", ""));
}

TEST_F(WholeFile, TextIsSavedUnderTheTimeOfDay) {
    EXPECT_TRUE(fs::save_text_file("dated", "Log", "TXT", "Out"));
    ASSERT_EQ(source_->made.size(), 1u);
    EXPECT_THAT(source_->made[0], testing::MatchesRegex("create_write Out/Log_20......_......\\.TXT"));
    EXPECT_FALSE(fs::save_text_file("x", std::string(300, 'n').c_str(), "txt", "out"));
    EXPECT_FALSE(fs::save_text_file("x", nullptr, nullptr, "d"));  // "d/_DATE_TIME." could not be kept on Windows
}

TEST_F(WholeFile, BinaryComesBackAsItWasSaved) {
    const char bytes[] = {0, 1, 2};
    EXPECT_TRUE(fs::save_binary_file(bytes, 3, "b.bin"));
    void* data = source_;
    std::uint64_t size = 99;
    EXPECT_FALSE(fs::load_binary_file(&data, &size, "missing"));
    EXPECT_EQ(data, nullptr);
    EXPECT_EQ(size, 0u);
    EXPECT_TRUE(fs::load_binary_file(&data, &size, "b.bin"));
    EXPECT_EQ(std::string(static_cast<char*>(data), size), std::string(bytes, 3));
    std::free(data);
    EXPECT_TRUE(fs::save_binary_file(nullptr, 0, "b.bin"));
    EXPECT_EQ(source_->content("b.bin"), "");
    EXPECT_FALSE(fs::save_binary_file(nullptr, 5, "b.bin"));
    EXPECT_FALSE(fs::load_binary_file(nullptr, &size, "b.bin"));
}

TEST_F(WholeFile, AFullDiskIsNotTakenForSuccess) {
    source_->file_capacity = 4;
    EXPECT_FALSE(fs::save_text_file("five!", "t.txt"));
    EXPECT_EQ(fs::last_error().code, EFSError::DISK_FULL);
    EXPECT_FALSE(fs::save_binary_file("five!", 5, "b.bin"));
    EXPECT_FALSE(fs::save_wide_string(L"ab", "w.txt"));
    EXPECT_TRUE(fs::save_text_file("four", "t.txt"));
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
        {"\xF4\x90\x80\x80", L"\u00f4\x90\x80\x80"},
        {"Stra\xDF.", L"Stra\u00df."},
        {"\x80x", L"\x80x"},
        {"x\xE2\x82", L"x\u00e2\x82"},
        {"\xE2\x82x", L"\u00e2\x82x"},
        {"\xC0\xAF\xE0\x80\xAF", L"\u00c0\u00af\u00e0\x80\u00af"},
        {"\xED\xA0\x80", L"\u00ed\u00a0\x80"},
        {"\xFF\xFF", L"\u00ff\u00ff"},
#endif
    };
    for (const auto& [bytes, text] : rows) {
        source_->add("w.txt", bytes);
        EXPECT_EQ(load_wide("w.txt"), text) << testing::PrintToString(bytes);
    }
    EXPECT_EQ(load_wide("missing"), L"(none)");
}

TEST_F(WholeFile, WideTextIsSavedAsUnits) {
    EXPECT_TRUE(fs::save_wide_string(L"a\u20AC\U0001F600", "w.txt"));
    EXPECT_EQ(source_->content("w.txt"), "\xFF\xFE\x61\0\xAC\x20\x3D\xD8\x00\xDE"s);
    EXPECT_TRUE(fs::save_wide_string(L"", "w.txt"));
    EXPECT_EQ(source_->content("w.txt"), "\xFF\xFE");
    EXPECT_FALSE(fs::save_wide_string(L"x", nullptr));
}

}  // namespace

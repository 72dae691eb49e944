// Names that a code page cannot hold, or holds in bytes that look like others. Run once by itself under each code page
// that matters (ENGINE_TEST_CODE_PAGE says which is meant).
#include <engine/filesystem.h>
#include <engine/filesystem/comfort.h>
#include <windows.h>

#include <gmock/gmock.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

using testing::UnorderedElementsAre;

constexpr auto mount_flags = FFSAddSourceFlags::RECURSIVE | FFSAddSourceFlags::INDEX_NAMES;

std::string utf8(const char8_t* text) { return reinterpret_cast<const char*>(text); }

class CodePages : public testing::Test {
protected:
    void SetUp() override {
        const char* const page = std::getenv("ENGINE_TEST_CODE_PAGE");
        if (page != nullptr && std::to_string(GetACP()) != page) GTEST_SKIP() << "not available: code page " << page;
        std::filesystem::create_directories(root_ / u8"日本");
        Put(u8"ヂ.txt");  // in code page 932 its second byte is that of "A", which folds to "a"
        Put(u8"ア.txt");
        Put(u8"日本/表.txt");  // and here it is a backslash
        Put(u8"Žluťoučký.txt");
    }
    void TearDown() override {
        fs::shutdown();
        std::filesystem::remove_all(root_);
    }
    void Put(const char8_t* name) const { std::ofstream(root_ / name, std::ios::binary) << "this is " << utf8(name); }
    static bool Start(const std::string& root) { return fs::init(root.c_str(), mount_flags, "", true, false, nullptr); }

    const std::filesystem::path root_ = std::filesystem::current_path() / u8"code page ポスト";
};

TEST_F(CodePages, EveryNameIsItselfAlone) {
    std::string long_name;
    while (long_name.size() < 240) long_name += utf8(u8"長");
    Put(reinterpret_cast<const char8_t*>((long_name + ".txt").c_str()));  // over 259 bytes with its root
    ASSERT_TRUE(Start(fs::from_path(root_)));
    const fs::found_files found = fs::find_files("", nullptr, true);
    EXPECT_THAT(
        std::vector<std::string>(found.begin(), found.end()),
        UnorderedElementsAre(utf8(u8"ヂ.txt"), utf8(u8"ア.txt"), utf8(u8"日本/表.txt"), utf8(u8"Žluťoučký.txt")));
    for (const char* name : found) {
        std::string text;
        EXPECT_TRUE(fs::read_file(text, name) && text == std::string("this is ") + name) << name;
    }
    ASSERT_TRUE(fs::write_file("new", utf8(u8"日本/新しい.txt").c_str()));
    EXPECT_TRUE(std::filesystem::exists(root_ / u8"日本/新しい.txt"));
    EXPECT_FALSE(fs::exists(utf8(u8"ツ.txt").c_str()));
}

/// Hosts that hold a path in the system's code page are understood where that is no UTF-8.
TEST_F(CodePages, BytesThatAreNoUtf8AreTakenInTheSystemsPage) {
    const std::wstring wide = (root_ / u8"ア.txt").wstring();
    char narrow[MAX_PATH] = "";
    BOOL is_lossy = FALSE;
    WideCharToMultiByte(CP_ACP, 0, wide.c_str(), -1, narrow, MAX_PATH, nullptr,
                        GetACP() == CP_UTF8 ? nullptr : &is_lossy);
    if (is_lossy || GetACP() == CP_UTF8) GTEST_SKIP() << "not available: the code page cannot hold the name";
    ASSERT_TRUE(Start(fs::from_path(root_)));
    EXPECT_TRUE(fs::native_does_file_exist(narrow));
    const fs::file_ptr file(fs::open_native(nullptr, narrow, EFSMode::READ));
    std::string text;
    EXPECT_TRUE(file && fs::read_rest(file.get(), text) && text == "this is " + utf8(u8"ア.txt"));
}

TEST_F(CodePages, ARootByItsShortNameIsTheRoot) {
    wchar_t short_name[MAX_PATH] = L"";
    GetShortPathNameW(root_.c_str(), short_name, MAX_PATH);
    const std::string root = fs::from_path(short_name);
    if (root.find('~') == std::string::npos) GTEST_SKIP() << "not available: the disk has no short names";
    ASSERT_TRUE(Start(root));
    std::string text;
    EXPECT_TRUE(fs::read_file(text, utf8(u8"ヂ.txt").c_str()));
    ASSERT_TRUE(fs::write_file("saved", "saves/new.txt"));
    EXPECT_TRUE(fs::read_file(text, (fs::from_path(root_) + "/saves/new.txt").c_str()) && text == "saved");
    GetShortPathNameW((root_ / u8"日本").c_str(), short_name, MAX_PATH);
    const std::string directory = fs::from_path(std::filesystem::path(short_name).filename());
    ASSERT_TRUE(fs::write_file("short", (directory + "/made.txt").c_str()));
    EXPECT_TRUE(fs::exists(utf8(u8"日本/made.txt").c_str(), FFSOpenFlags::WHOLE_NAME));
}

}  // namespace

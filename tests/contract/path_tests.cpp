#include <engine/filesystem/contract/path.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <random>
#include <string>
#include <tuple>
#include <vector>

namespace {

/// Normalises into exact heap blocks, so that a sanitizer sees any byte too many, and in place; both must agree.
std::string normalized(const std::string& in, bool keep_case = false) {
    std::vector<char> apart(in.size() + 1, '\x7f');
    fs::path_normalize(apart.data(), in.c_str(), keep_case);
    std::vector<char> place(in.c_str(), in.c_str() + in.size() + 1);
    fs::path_normalize(place.data(), place.data(), keep_case);
    EXPECT_STREQ(apart.data(), place.data()) << "in place, of \"" << in << '"';
    return apart.data();
}

std::string lower_case(std::string text) {
    for (char& c : text) c = static_cast<char>(c >= 'A' && c <= 'Z' ? c + 32 : c);
    return text;
}

/// The rules as the standard library tells them, behind the prefix; not of a network's paths. It is asked in
/// UTF-16, in which every byte stands for itself, and ":" means nothing to it.
std::string model(const std::string& in) {
    const std::size_t colon = in.find_first_of("/\\:");
    const bool has_prefix = colon != std::string::npos && colon != 0 && in[colon] == ':';
    const std::string prefix = in.substr(0, has_prefix ? colon + 1 : 0);
    std::u16string rest;
    for (const unsigned char c : in.substr(prefix.size()))
        rest += static_cast<char16_t>(c == '\\' ? '/' : c == ':' ? '|' : c);
    const bool ends_in_slash = rest.ends_with(u'/');
    if (rest.starts_with(u'/')) rest.erase(0, std::min(rest.find_first_not_of(u'/'), rest.size()) - 1);
    rest = std::filesystem::path(rest).lexically_normal().generic_u16string();
    if (rest == u".") rest.clear();
    if (!rest.empty() && rest != u"/") {
        if (rest.ends_with(u'/')) rest.pop_back();
        if (ends_in_slash) rest += u'/';
    }
    std::string out = prefix;
    for (const char16_t c : rest) out += c == u'|' ? ':' : static_cast<char>(c);
    return lower_case(out);
}

TEST(PathNormalize, FollowsItsRules) {
    const std::pair<const char*, const char*> rows[] = {
        {"", ""},
        {"C:\\Data\\.\\Maps\\..\\x.bin", "c:/data/x.bin"},
        {"\\\\srv\\share\\dir", "//srv/share/dir"},
        {"//server/", "//server/"},
        {"//server", "/server"},
        {"//server//x", "/server/x"},
        {".git/..hidden/...", ".git/..hidden/..."},
        {"pack:a/../b", "pack:b"},
        {":a:b/../c", "c"},
        {"\xC4\x80/\xFF", "\xC4\x80/\xFF"},
    };
    for (const auto& [in, out] : rows) EXPECT_EQ(normalized(in), out) << in;
    EXPECT_EQ(normalized("A\\B/./C", true), "A/B/C");
    std::string in(100000, 'A');
    for (int i = 0; i < 30000; ++i) in += "/up/..";
    EXPECT_EQ(normalized(in), std::string(100000, 'a'));
    char out[8] = "before";
    fs::path_normalize(out, nullptr, false);
    EXPECT_STREQ(out, "");
    fs::path_normalize(nullptr, "x", false);
}

// Short texts are full of work, long ones cross the borders of the blocks that plain text is taken by.
TEST(PathNormalize, AgreesWithASlowModelOnRandomText) {
    std::mt19937 random(20240229);
    const std::string busy = "aB/\\..:x/";
    const std::string plain = "abcdefgh@AZ[`z{_\xC1\xFF";
    for (int round = 0; round < 300000; ++round) {
        const bool is_short = round % 2 == 0;
        std::string in(random() % (is_short ? 14 : 70), '\0');
        for (char& c : in) {
            const std::string& letters = is_short || random() % 12 == 0 ? busy : plain;
            c = letters[random() % letters.size()];
        }
        const std::string out = normalized(in);
        const bool is_network = in.find_first_not_of("/\\") == 2;
        if (!is_network) ASSERT_EQ(out, model(in)) << in;
        ASSERT_EQ(lower_case(normalized(in, true)), out) << in;
        if (in.find(':') != std::string::npos) continue;
        const std::vector<char> exact(in.c_str(), in.c_str() + in.size() + 1);
        const fs::path path(exact.data(), true);
        ASSERT_EQ(path.PathName(), out.substr(0, out.rfind('/') + 1)) << in;
        ASSERT_EQ(path.FileName(), out.substr(out.rfind('/') + 1)) << in;
    }
}

TEST(IsFullPath, KnowsRootsAndPrefixes) {
    for (const char* full : {"/", "\\x", "c:", "c:/x", "pack:x"}) EXPECT_TRUE(fs::is_full_path(full)) << full;
    for (const char* part : {"", "x", "x/c:", ":x", "../c"}) EXPECT_FALSE(fs::is_full_path(part)) << part;
    EXPECT_FALSE(fs::is_full_path(nullptr));
}

/// "directory|file name".
std::string split_of(const fs::path& path) { return std::string(path.PathName()) + '|' + path.FileName(); }

TEST(Path, PartsAreNormalisedEachOnItsOwn) {
    for (const auto& [in, out] : {std::pair("c:x", "|c:x"), {"a/c:..", "a/|c:.."}, {"a/c:.", "a/|c:"}})
        EXPECT_EQ(split_of(fs::path(in, true)), out) << in;
    EXPECT_TRUE(fs::path(nullptr, true).Empty() && fs::path("", true).Empty());
}

TEST(Path, MarksAreThoseOfTheLatestText) {
    fs::path path("X", true);
    path.SetInstalled(false);
    const fs::path copy = path;
    EXPECT_TRUE(copy.IsLowercase() && !copy.IsInstalled());
    path.Set("A", "B", false);
    EXPECT_TRUE(path.IsInstalled() && !path.IsLowercase());
    path.Lowercase();
    EXPECT_TRUE(path.IsLowercase());
    EXPECT_EQ(split_of(path), "a/|b");
}

TEST(Path, KeepsItsTextWhereverItIsCopied) {
    for (const std::size_t length : {0u, 1u, 29u, 30u, 31u, 32u, 33u, 70000u}) {
        SCOPED_TRACE(length);
        const std::string word(length, 'w');
        const std::string expected = (word.empty() ? "" : word + "/") + '|' + word;
        fs::path path;
        path.Set(word.c_str(), word.c_str(), true);
        fs::path copy(path);
        const fs::path& same = copy;
        copy = same;  // onto itself
        EXPECT_EQ(split_of(copy), expected);
        copy = std::move(path);
        EXPECT_TRUE(path.Empty());
        fs::path moved(std::move(copy));
        moved.Set(moved.FileName(), moved.FileName(), true);  // its own text
        EXPECT_EQ(split_of(moved), expected);
        moved = fs::path("short", true);
        copy = moved;
        EXPECT_TRUE(copy == moved);
        EXPECT_EQ(split_of(copy), "|short");
        moved.Release();
        EXPECT_TRUE(moved.Empty() && !(copy == moved));
    }
}

TEST(Path, GivesTheFullNameOnlyWhenItFits) {
    const fs::path path("dir/name.ext", true);
    char out[16] = "";
    EXPECT_TRUE(path.FullName(out, 13));
    EXPECT_STREQ(out, "dir/name.ext");
    EXPECT_FALSE(path.FullName(out, 12) || path.FullName(out, 0) || path.FullName(nullptr, 5));
    EXPECT_STREQ(out, "");
    fs::string text = "old";
    path.FullName(text);
    EXPECT_EQ(text, "dir/name.ext");
}

TEST(Path, ReplacesTheExtensionOfTheFileNameAlone) {
    const std::string long_ext = "." + std::string(31, '0');
    const std::tuple<const char*, const char*, const char*, std::string> rows[] = {
        {"a.b/name", ".x", "", "name.x"},   {"a/n.tar.gz", "x", ".gz", "n.tar.x"},
        {"a/n.txt", "", ".txt", "n"},       {"a/n.txt", nullptr, ".txt", "n"},
        {"a/.cfg", ".INI", ".cfg", ".ini"}, {"a/x.dds", long_ext.c_str(), ".dds", "x" + long_ext},
    };
    for (const auto& [text, ext, old_ext, file] : rows) {
        fs::path path(text, true);
        EXPECT_STREQ(path.Ext(), old_ext) << text;
        path.ExtReplace(ext);
        EXPECT_EQ(path.FileName(), file) << text;
    }
    fs::path own("dir/name.ext", true);
    own.ExtReplace(own.FileName());
    EXPECT_STREQ(own.FileName(), "name.name.ext");
}

}  // namespace

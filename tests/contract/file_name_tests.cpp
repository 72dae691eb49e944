#include <engine/filesystem/contract/path.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <tuple>

namespace {

#if defined(_WIN32)
constexpr bool knows_drives = true;
#else
constexpr bool knows_drives = false;
#endif

std::string call(char* (*function)(char*, const char*), const char* path) {
    char out[fs::path_capacity] = "junk";
    EXPECT_EQ(function(out, path), out);
    return out;
}

TEST(FileNames, AreTakenApartAsTheRunTimeDoes) {
    const std::tuple<const char*, const char*, const char*, const char*> rows[] = {
        {"", "", "", ""},           {nullptr, "", "", ""},
        {"name", "", "name", ""},   {"a/b\\c.d.e", "a/b\\", "c.d", ".e"},
        {"a.b/c", "a.b/", "c", ""}, {"a/.cfg", "a/", "", ".cfg"},
        {"a/..", "a/", ".", "."},   {"x.", "", "x", "."},
        {"dir/", "dir/", "", ""},   {"/root.x", "/", "root", ".x"},
    };
    for (const auto& [path, dir_part, name_part, ext_part] : rows) {
        SCOPED_TRACE(testing::PrintToString(path));
        const fs::string text = path != nullptr ? path : "";
        const std::tuple<char* (*)(char*, const char*), fs::string (*)(const fs::string&), std::string> functions[] = {
            {fs::filename_get_path, fs::filename_get_path, dir_part},
            {fs::filename_get_name, fs::filename_get_name, name_part},
            {fs::filename_get_ext, fs::filename_get_ext, ext_part},
            {fs::filename_get_fname, fs::filename_get_fname, std::string(name_part) + ext_part}};
        for (const auto& [of_path, of_text, part] : functions) {
            EXPECT_EQ(call(of_path, path), part);
            EXPECT_EQ(of_text(text), part);
        }
        EXPECT_EQ(fs::extract_path(path), dir_part);
        char drive[fs::path_capacity], dir[fs::path_capacity], name[fs::path_capacity], ext[fs::path_capacity];
        EXPECT_TRUE(fs::decompose_path(path, drive, dir, name, ext));
        EXPECT_EQ(std::string(drive) + dir + name + ext, text);
    }
    EXPECT_EQ(call(fs::filename_get_path, "c:x"), knows_drives ? "c:" : "");
    EXPECT_EQ(call(fs::filename_get_name, "c:x"), knows_drives ? "x" : "c:x");
}

TEST(FileNames, AnAnswerThatDoesNotFitIsEmpty) {
    const std::string fits(fs::path_capacity - 1, 'n');
    const std::string too_long(fs::path_capacity, 'n');
    EXPECT_EQ(call(fs::filename_get_name, fits.c_str()), fits);
    EXPECT_EQ(call(fs::filename_get_name, too_long.c_str()), "");
    EXPECT_EQ(fs::filename_get_fname(too_long), "");
    EXPECT_EQ(call(fs::filename_get_ext, (too_long + ".x").c_str()), ".x");
    EXPECT_FALSE(fs::decompose_path(too_long.c_str(), nullptr, nullptr, nullptr, nullptr));
    char out[fs::path_capacity];
    EXPECT_STREQ(fs::mangle_file_name(out, fits.c_str(), 1), "");
    EXPECT_STREQ(fs::filename_build_path(out, nullptr, fits.c_str(), "x", nullptr), "");
    EXPECT_STREQ(fs::filename_build_path_v(out, fits.c_str(), "x", static_cast<const char*>(nullptr)), "");
    std::strcpy(out, fits.c_str());
    EXPECT_STREQ(fs::filename_change_extension_inplace(out, ".x"), "");
}

TEST(FileNames, ChangeTheirExtensionInPlace) {
    const std::tuple<const char*, const char*, const char*> rows[] = {
        {"a.b/c.d", ".x", "a.b/c.x"}, {"a.b/c", "x", "a.b/c.x"}, {"c.d", "", "c"},
        {"c.d", nullptr, "c"},        {"", "x", ".x"},
    };
    for (const auto& [name, ext, out] : rows) {
        char path[fs::path_capacity];
        std::strcpy(path, name);
        EXPECT_STREQ(fs::filename_change_extension_inplace(path, ext), out) << name;
    }
    EXPECT_EQ(fs::filename_change_extension_inplace(nullptr, "x"), nullptr);
}

TEST(FileNames, SlashesAreTakenAndPut) {
    char forward[] = "dir//", back[] = "dir\\", name[] = "abc", empty[] = "";
    EXPECT_STREQ(fs::remove_slash(forward), "dir/");
    EXPECT_STREQ(fs::remove_slash(back), "dir\\");
    EXPECT_STREQ(fs::append_slash(name, 4), "abc");                              // 3 + 1 is not below 4
    for (int i = 0; i < 2; ++i) EXPECT_STREQ(fs::append_slash(name, 5), "ab/");  // over the last character
    EXPECT_STREQ(fs::append_slash(empty, 5), "");
    EXPECT_EQ(fs::remove_slash(nullptr), nullptr);
    EXPECT_EQ(fs::append_slash(nullptr, 5), nullptr);
}

TEST(FileNames, CarryFlagsBehindAnAmpersand) {
    const std::tuple<const char*, std::uint32_t, const char*> rows[] = {
        {"x.dds", 0x12, "x&0012.dds"}, {"a.b/x", 0, "a.b/x&0000"}, {"a&b.dds", 0xDEADBEEF, "a&b&deadbeef.dds"}};
    std::uint32_t flags = 99;
    char out[fs::path_capacity];
    for (const auto& [plain, number, mangled] : rows) {
        EXPECT_STREQ(fs::mangle_file_name(out, plain, number), mangled);
        char back[fs::path_capacity];
        EXPECT_EQ(fs::unmangle_file_name(out, back, flags), back);
        EXPECT_STREQ(back, plain);
        EXPECT_EQ(flags, number);
        EXPECT_STREQ(fs::unmangle_file_name_nameonly(out, out), plain);
        EXPECT_EQ(fs::unmangle_file_name_flagsonly(mangled), number);
    }
    EXPECT_EQ(fs::unmangle_file_name("a&1/plain.x", out, flags), nullptr);
    EXPECT_STREQ(out, "a&1/plain.x");
    EXPECT_EQ(flags, 0u);
    EXPECT_EQ(fs::unmangle_file_name("bare&.x", out, flags), out);
    EXPECT_STREQ(out, "bare.x");
    EXPECT_EQ(fs::unmangle_file_name_flagsonly("x&0x12 more.d"), 0x12u);
}

TEST(FileNames, AreBuiltFromTheirParts) {
    const char* const end = nullptr;
    char out[fs::path_capacity];
    EXPECT_STREQ(fs::filename_build_path(out, "c", "dir", "name", "ext"), "c:dir/name.ext");
    EXPECT_STREQ(fs::filename_build_path(out, "c:", "dir\\", "name", ".ext"), "c:dir\\name.ext");
    EXPECT_STREQ(fs::filename_build_path(out, nullptr, nullptr, nullptr, nullptr), "");
    EXPECT_STREQ(fs::filename_build_path_v(out, "/a/", "/b", "", "c/", end), "/a/b/c/");
    EXPECT_STREQ(fs::filename_build_path_v(out, end), "");
    EXPECT_STREQ(fs::filename_build_path_vq(out, "a b", "c", end), "\"a b/c\"");
    EXPECT_STREQ(fs::filename_build_path_vq(out, "a", "c", end), "a/c");
}

}  // namespace

#include <engine/filesystem/access/open.h>
#include <engine/filesystem/contract/error.h>
#include <engine/filesystem/contract/names.h>
#include <engine/filesystem/contract/path.h>
#include <engine/filesystem/streams/memory.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <random>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "engine/filesystem/contract/name_list.h"
#include "tests/log/log_fixture.h"
#include "tests/support/child_process.h"

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
    for (const char c : in.substr(prefix.size())) {
        const auto unit = static_cast<unsigned char>(c);
        rest += c == '\\' ? u'/' : c == ':' ? u'|' : char16_t{unit};
    }
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
        {"\\\\srv\\share\\dir", "//srv/share/dir"},
        {"//server/", "//server/"},
        {"//server", "/server"},
        {"//server//x", "/server/x"},
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

TEST(Path, NormalisesEachPartOnItsOwnAndIsMarkedByItsLatestText) {
    for (const auto& [in, out] : {std::pair("c:x", "|c:x"), {"a/c:..", "a/|c:.."}, {"a/c:.", "a/|c:"}})
        EXPECT_EQ(split_of(fs::path(in, true)), out) << in;
    EXPECT_TRUE(fs::path(nullptr, true).Empty() && fs::path("", true).Empty());
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

// The helpers of file names, which know no normal form.

#ifdef _WIN32
constexpr char drive_of_c_x[] = "c:";
#else
constexpr char drive_of_c_x[] = "";
#endif

std::string call(char* (*function)(char*, const char*), const char* path) {
    char out[fs::path_capacity] = "junk";
    EXPECT_EQ(function(out, path), out);
    return out;
}

TEST(FileNames, AreTakenApartAsTheRunTimeDoes) {
    const std::tuple<const char*, const char*, const char*, const char*> rows[] = {
        {nullptr, "", "", ""},          {"name", "", "name", ""}, {"a/b\\c.d.e", "a/b\\", "c.d", ".e"},
        {"a.b/c", "a.b/", "c", ""},     {"a/..", "a/", ".", "."}, {"a/.cfg", "a/", "", ".cfg"},
        {"/root.x", "/", "root", ".x"}, {"x.", "", "x", "."},     {"dir/", "dir/", "", ""},
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
    EXPECT_EQ(call(fs::filename_get_path, "c:x"), drive_of_c_x);
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

TEST(FileNames, ChangeTheirExtensionAndLastSlashInPlace) {
    const std::tuple<const char*, const char*, const char*> rows[] = {
        {"a.b/c.d", ".x", "a.b/c.x"}, {"a.b/c", "x", "a.b/c.x"}, {"c.d", nullptr, "c"}, {"", "x", ".x"}};
    for (const auto& [name, ext, out] : rows) {
        char path[fs::path_capacity];
        std::strcpy(path, name);
        EXPECT_STREQ(fs::filename_change_extension_inplace(path, ext), out) << name;
    }
    char forward[] = "dir//", back[] = "dir\\", name[] = "abc", empty[] = "";
    EXPECT_STREQ(fs::remove_slash(forward), "dir/");
    EXPECT_STREQ(fs::remove_slash(back), "dir\\");
    EXPECT_STREQ(fs::append_slash(name, 4), "abc");                              // 3 + 1 is not below 4
    for (int i = 0; i < 2; ++i) EXPECT_STREQ(fs::append_slash(name, 5), "ab/");  // over the last character
    EXPECT_STREQ(fs::append_slash(empty, 5), "");
    for (const char* none :
         {fs::filename_change_extension_inplace(nullptr, "x"), fs::remove_slash(nullptr), fs::append_slash(nullptr, 5)})
        EXPECT_EQ(none, nullptr);
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

/// Every directory below `node`, in order, as a path.
std::vector<std::string> paths_below(const fs::idir& node, const std::string& lead = "") {
    std::vector<std::string> out;
    for (const fs::idir* child = node.first_child(); child != nullptr; child = child->next_sibling()) {
        EXPECT_EQ(child->parent(), &node);
        out.push_back(lead + child->name());
        for (const std::string& path : paths_below(*child, lead + child->name() + "/")) out.push_back(path);
    }
    return out;
}

TEST(Dir, AddsWhatIsMissingInOrderAndMergesEveryDirectoryOnce) {
    fs::dir one, other;
    fs::dir* const x = one.add_path("b/x/");
    EXPECT_TRUE(one.add_path("//b//x") == x && one.find("b/x/") == x);
    for (const fs::dir* self : {one.add_path(""), one.add_path(nullptr), one.find(nullptr)}) EXPECT_EQ(self, &one);
    for (const char* missing : {"b/y", "B"}) EXPECT_EQ(one.find(missing), nullptr);
    one.add_path("a/b");
    for (const char* path : {"a/c/d", "e", "a/b/f"}) other.add_path(path);
    for (const fs::dir* from : {&other, &other, &one}) one.merge(*from);
    one.find("a")->merge(one);  // its own ancestor: refused, since it would never end
    EXPECT_EQ(paths_below(one), (std::vector<std::string>{"b", "b/x", "a", "a/b", "a/b/f", "a/c", "a/c/d", "e"}));
    one.set_name(nullptr);
    EXPECT_STREQ(one.name(), "");
}

TEST(Dir, AgreesWithASetOfPathsThroughManyChanges) {
    std::mt19937 random(7);
    fs::dir root;
    std::set<std::string> model;
    for (int round = 0; round < 20000; ++round) {
        const std::string top = "t" + std::to_string(random() % 60);
        const std::string path = top + "/s" + std::to_string(random() % 40);
        if (random() % 4 != 0) {
            root.add_path(path.c_str());
            model.insert({top, path});
        } else if (random() % 8 != 0) {
            root.remove(path.c_str());
            model.erase(path);
        } else {
            root.remove(top.c_str());
            std::erase_if(model, [&](const std::string& held) { return held == top || held.starts_with(top + "/"); });
        }
        const std::string asked = "t" + std::to_string(random() % 60) + "/s" + std::to_string(random() % 40);
        ASSERT_EQ(root.find(asked.c_str()) != nullptr, model.contains(asked)) << round;
    }
    ASSERT_NE(root.find("t50"), nullptr);
    root.find("t50")->set_name("new");
    root.add_path("more");
    EXPECT_TRUE(root.find("t50") == nullptr && root.find("new") != nullptr);
    root.remove("more");
    root.find("new")->set_name("t50");
    const std::vector<std::string> held = paths_below(root);
    EXPECT_EQ(std::set<std::string>(held.begin(), held.end()), model);
    EXPECT_EQ(held.size(), model.size());
}

TEST(Dir, HoldsHugeAndDeepTrees) {
    fs::dir wide;
    for (int i = 0; i < 100000; ++i) wide.add_path(std::to_string(i).c_str());
    EXPECT_STREQ(wide.find("99999")->name(), "99999");
    std::string path;
    for (int i = 0; i < 200000; ++i) path += "d/";
    fs::dir deep, copy;
    deep.add_path(path.c_str());
    copy.merge(deep);
    EXPECT_NE(copy.find(path.c_str()), nullptr);
}

struct DumpedDirectories : LogTest {};

TEST_F(DumpedDirectories, AreATreeWithDuplicatesMarked) {
    fs::dir root, deep;
    root.set_name("root");
    root.add_path("twin");
    root.add_path("other")->set_name("twin");
    std::string path;
    for (int i = 0; i < 3000; ++i) path += "d/";
    deep.add_path(path.c_str());
    _CLFilterSetMode(CLFilterMode::ALL_CONSOLE);
    DumpDirectories(nullptr, 1);
    DumpDirectories(&root, 1);
    ASSERT_EQ(console_lines.size(), 3u);
    const char* const ends[] = {"  root\r\n", "    twin\r\n",
                                "    twin (duplicated resource in the same filesystem source)\r\n"};
    for (std::size_t i = 0; i < 3; ++i) EXPECT_TRUE(console_lines[i].text.ends_with(ends[i])) << console_lines[i].text;
    DumpDirectories(&deep, -5);
}

TEST(OpenFile, SaysThatItsKindCannotDoWhatItIsAsked) {
    FileInMemory file(nullptr, 0);
    for (const auto operation : {+[](SFsFile& at) { return at.set_eof(); },
                                 +[](SFsFile& at) { return at.read_async(nullptr, 0, 0, nullptr, 0); },
                                 +[](SFsFile& at) { return at.write_async(nullptr, 0, 0, nullptr, 0); }}) {
        fs::clear_error();
        EXPECT_FALSE(operation(file));
        EXPECT_EQ(fs::last_error().code, EFSError::UNSUPPORTED);
    }
}

SFsFile* open_missing() { return fs::open(std::string(100, 'n').c_str(), EFSMode::READ); }

/// A static object of the host, which uses the library last of all.
struct LastCaller {
    bool calls = false;
    ~LastCaller() {
        if (calls && (open_missing() || fs::last_error().code != EFSError::NOT_INITIALIZED)) std::_Exit(1);
    }
} last_caller;

TEST(LastErrorChild, DISABLED_Ends) {
    EXPECT_EQ(open_missing(), nullptr);
    last_caller.calls = true;
}

// A failure of such an object freed what the thread's last error had freed at its end.
TEST(LastError, IsToldToWhatIsDestroyedAfterTheThreadsOwn) {
    EXPECT_EQ(run_child("LastErrorChild.DISABLED_Ends").exit_code, 0);
}

TEST(NameMatches, FollowsStarsAndQuestionMarks) {
    const std::tuple<const char*, const char*, bool> rows[] = {
        {"a.txt", nullptr, true}, {"a.txt", "", true}, {"A.TXT", "*.TX?", true},  {"", "?", false},
        {"noext", "*.*", false},  {"a", "a**", true},  {"abcabd", "a*b*d", true}, {"abc", "abcd", false},
    };
    for (const auto& [name, mask, matches] : rows)
        EXPECT_EQ(fs::name_matches(name, mask), matches) << name << " against " << testing::PrintToString(mask);
    const std::string name(5000, 'a');
    std::string mask;  // so many stars that trying every length for each would not end
    for (int i = 0; i < 200; ++i) mask += "*a";
    EXPECT_FALSE(fs::name_matches(name, (mask + "b").c_str()));
    EXPECT_TRUE(fs::name_matches(name, mask.c_str()));
}

}  // namespace

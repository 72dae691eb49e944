// Packs and other people's tools: theirs mount here and read back the same, ours pass their checks. A tool that is not
// installed is passed over.
#include <cstdlib>
#include <filesystem>
#include <map>

#include <gtest/gtest.h>

#include <engine/filesystem/containers/pack_writer.h>

#include "tests/sources/pack/fixture.h"
#include "tests/support/temp_directory.h"

namespace {

#if defined(_WIN32)
constexpr const char* nowhere = "NUL";
#else
constexpr const char* nowhere = "/dev/null";
#endif

int run(const std::string& command) { return std::system((command + " > " + nowhere + " 2>&1").c_str()); }

using Files = std::map<std::string, std::string>;

Files sample() {
    Files files{{"empty.txt", ""}, {"a/one.txt", "1"}, {"a/b/text.txt", std::string(100000, 't')}};
    for (std::uint32_t i = 0; i < 40; ++i) files["a/n/" + std::to_string(i)] = packs::noise(i * i * 300, i);
    return files;
}

struct Tool {
    const char* name;
    const char* version;  // succeeds where the tool is installed
    const char* command;  // in the directory that holds tree/ and out.pak
};

class PackInterchange : public testing::Test {
protected:
    int in_directory(const char* command) { return run("(cd " + dir_.path() + " && " + command + ")"); }

    const TempDirectory dir_;
};

class PacksMadeElsewhere : public PackInterchange, public testing::WithParamInterface<Tool> {};
class PacksMadeHere : public PackInterchange, public testing::WithParamInterface<Tool> {};

TEST_P(PacksMadeElsewhere, MountAndReadBackTheSame) {
    if (run(GetParam().version) != 0) GTEST_SKIP() << GetParam().name << " is not installed";
    for (const auto& [name, bytes] : sample()) dir_.write("tree/" + name, bytes);
    ASSERT_EQ(in_directory(GetParam().command), 0);
    CZip_dir pack;
    const std::string path = dir_ / "out.pak";
    pack.set_native_spelling(path.c_str());
    ASSERT_TRUE(pack.init(fs::path(path.c_str(), true), FFSAddSourceFlags::NONE, nullptr));
    EXPECT_EQ(packs::take_names(pack.get_file_list(nullptr, nullptr, true)).size(), sample().size());
    for (const auto& [name, bytes] : sample()) EXPECT_EQ(packs::content(pack, "tree/" + name), bytes) << name;
}

TEST_P(PacksMadeHere, PassTheirChecks) {
    if (run(GetParam().version) != 0) GTEST_SKIP() << GetParam().name << " is not installed";
    fs::pack_writer writer;
    ASSERT_TRUE(writer.open((dir_ / "out.pak").c_str()));
    int level = 0;
    for (const auto& [name, bytes] : sample()) {
        ASSERT_TRUE(writer.add(name.c_str(), bytes.data(), bytes.size(), level++ % 13, 0));
    }
    ASSERT_TRUE(writer.add("\xC3\xA9tat.txt", "utf-8", 5, 6, 0));
    ASSERT_TRUE(writer.finish());
    EXPECT_EQ(in_directory(GetParam().command), 0);
}

// Long entries are frames with a table behind them, which other readers pass over.
TEST_F(PackInterchange, ZstdEntriesAreReadByAnIndependentTool) {
    if (run("bsdtar --version") != 0) GTEST_SKIP() << "bsdtar is not installed";
    const std::string path = dir_ / "out.pak";
    const std::string long_text = packs::noise((5 << 19) + 77, 1);
    fs::pack_writer writer;
    ASSERT_TRUE(writer.open(path.c_str()));
    if (!writer.add("long", long_text.data(), long_text.size(), 9, 0, EFSPackMethod::ZSTD)) GTEST_SKIP() << "no zstd";
    ASSERT_TRUE(writer.add("short", long_text.data(), 5000, 19, 0, EFSPackMethod::ZSTD) && writer.finish());
    ASSERT_EQ(in_directory("bsdtar -xf out.pak"), 0);
    EXPECT_TRUE(dir_.read("long") == long_text);
    EXPECT_TRUE(dir_.read("short") == long_text.substr(0, 5000));
}

std::string name_of(const testing::TestParamInfo<Tool>& info) { return info.param.name; }

INSTANTIATE_TEST_SUITE_P(Tools, PacksMadeElsewhere,
                         testing::Values(Tool{"zip", "zip -v", "zip -q -r out.zip tree && mv out.zip out.pak"},
                                         Tool{"zip_store", "zip -v", "zip -0 -q -r out.zip tree && mv out.zip out.pak"},
                                         Tool{"sevenzip", "7z", "7z a -tzip out.zip tree && mv out.zip out.pak"},
                                         Tool{"python", "python3 --version", "python3 -m zipfile -c out.pak tree"}),
                         name_of);
INSTANTIATE_TEST_SUITE_P(
    Tools, PacksMadeHere,
    testing::Values(Tool{"unzip", "unzip -v", "unzip -t out.pak"}, Tool{"sevenzip", "7z", "7z t out.pak"},
                    Tool{"python", "python3 --version",
                         "python3 -c 'import zipfile; assert zipfile.ZipFile(\"out.pak\").testzip() is None'"}),
    name_of);

}  // namespace

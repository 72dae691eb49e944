// Packs and other people's tools: theirs mount here and read back the same, ours pass their checks. A tool that is not
// installed is passed over.
#include <cstdlib>
#include <map>

#include "tests/sources/pack/fixture.h"

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

class PackInterchange : public testing::TestWithParam<Tool> {
protected:
    void SetUp() override {
        if (run(GetParam().version) != 0) GTEST_SKIP() << GetParam().name << " is not installed";
    }
    int run_tool() { return run("(cd " + dir_.path() + " && " + GetParam().command + ")"); }

    const TempDirectory dir_;
    const std::string pack_ = dir_ / "out.pak";
};
class PacksMadeElsewhere : public PackInterchange {};
class PacksMadeHere : public PackInterchange {};
class ZstdPacksMadeHere : public PackInterchange {};

TEST_P(PacksMadeElsewhere, MountAndReadBackTheSame) {
    for (const auto& [name, bytes] : sample()) dir_.write("tree/" + name, bytes);
    ASSERT_EQ(run_tool(), 0);
    const auto pack = packs::mount_file(pack_);
    ASSERT_TRUE(pack);
    EXPECT_EQ(all_names(*pack).size(), sample().size());
    for (const auto& [name, bytes] : sample()) EXPECT_EQ(packs::content(*pack, "tree/" + name), bytes) << name;
}

TEST_P(PacksMadeHere, PassTheirChecks) {
    fs::pack_writer writer;
    ASSERT_TRUE(writer.open(pack_.c_str()));
    int level = 0;
    for (const auto& [name, bytes] : sample())
        ASSERT_TRUE(writer.add(name.c_str(), bytes.data(), bytes.size(), level++ % 13, 0));
    ASSERT_TRUE(writer.add("\xC3\xA9tat.txt", "utf-8", 5, 6, 0) && writer.finish());
    EXPECT_EQ(run_tool(), 0);
}

// Long entries are frames with a table behind them, which other readers pass over.
TEST_P(ZstdPacksMadeHere, AreUnpacked) {
    const std::string text = packs::noise((5 << 19) + 77, 1);
    fs::pack_writer writer;
    ASSERT_TRUE(writer.open(pack_.c_str()));
    if (!writer.add("long", text.data(), text.size(), 9, 0, EFSPackMethod::ZSTD)) GTEST_SKIP() << "no zstd";
    ASSERT_TRUE(writer.add("short", text.data(), 5000, 19, 0, EFSPackMethod::ZSTD) && writer.finish());
    ASSERT_EQ(run_tool(), 0);
    EXPECT_TRUE(dir_.read("long") == text);
    EXPECT_TRUE(dir_.read("short") == text.substr(0, 5000));
}

std::string name_of(const testing::TestParamInfo<Tool>& info) { return info.param.name; }

const Tool packers[] = {{"zip", "zip -v", "zip -q -r out.zip tree && mv out.zip out.pak"},
                        {"zip_store", "zip -v", "zip -0 -q -r out.zip tree && mv out.zip out.pak"},
                        {"sevenzip", "7z", "7z a -tzip out.zip tree && mv out.zip out.pak"},
                        {"python", "python3 --version", "python3 -m zipfile -c out.pak tree"}};
const Tool checkers[] = {{"unzip", "unzip -v", "unzip -t out.pak"},
                         {"sevenzip", "7z", "7z t out.pak"},
                         {"python", "python3 --version",
                          "python3 -c 'import zipfile; assert zipfile.ZipFile(\"out.pak\").testzip() is None'"}};
const Tool unpackers[] = {{"bsdtar", "bsdtar --version", "bsdtar -xf out.pak"}};
INSTANTIATE_TEST_SUITE_P(Tools, PacksMadeElsewhere, testing::ValuesIn(packers), name_of);
INSTANTIATE_TEST_SUITE_P(Tools, PacksMadeHere, testing::ValuesIn(checkers), name_of);
INSTANTIATE_TEST_SUITE_P(Tools, ZstdPacksMadeHere, testing::ValuesIn(unpackers), name_of);

}  // namespace

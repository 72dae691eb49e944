// Packs and other people's tools: theirs mount here and read back the same, ours pass their checks. A tool that is not
// installed is passed over.
#include <cstdlib>
#include <map>

#include "tests/sources/pack/fixture.h"

namespace {

#if defined(_WIN32)
constexpr const char* silently = " > NUL 2>&1";
#else
constexpr const char* silently = " > /dev/null 2>&1";
#endif

std::map<std::string, std::string> sample() {
    std::map<std::string, std::string> files{
        {"empty.txt", ""}, {"a/one.txt", "1"}, {"a/b/text.txt", std::string(100000, 't')}};
    for (std::uint32_t i = 0; i < 40; ++i) files["a/n/" + std::to_string(i)] = noise(i * i * 300, i);
    return files;
}

class PackInterchange : public testing::Test {
protected:
    /// What the command answers in the directory that holds tree/ and out.pak; 0 too where `probe` finds no such tool.
    int run(const std::string& probe, const std::string& command) {
        if (std::system((probe + silently).c_str()) != 0) return 0;
        ++tools_;
        return std::system(("(cd " + dir_.path() + " && " + command + ")" + silently).c_str());
    }
    void TearDown() override {
        if (tools_ == 0) GTEST_SKIP() << "not available: tools for zip files";
    }

    const TempDirectory dir_;
    const std::string pack_ = dir_ / "out.pak";
    int tools_ = 0;
};

TEST_F(PackInterchange, PacksMadeElsewhereMountAndReadBackTheSame) {
    for (const auto& [name, bytes] : sample()) dir_.write("tree/" + name, bytes);
    const std::pair<const char*, const char*> packers[] = {
        {"zip -v", "zip -q -r out.zip tree && mv out.zip out.pak"},
        {"zip -v", "zip -0 -q -r out.zip tree && mv out.zip out.pak"},
        {"7z", "7z a -tzip out.zip tree && mv out.zip out.pak"},
        {"python3 --version", "python3 -m zipfile -c out.pak tree"}};
    for (const auto& [probe, command] : packers) {
        SCOPED_TRACE(command);
        std::filesystem::remove(pack_);
        ASSERT_EQ(run(probe, command), 0);
        if (!dir_.exists("out.pak")) continue;
        const auto pack = packs::mount_file(pack_);
        ASSERT_TRUE(pack);
        EXPECT_EQ(all_names(*pack).size(), sample().size());
        for (const auto& [name, bytes] : sample()) EXPECT_EQ(packs::content(*pack, "tree/" + name), bytes) << name;
    }
}

TEST_F(PackInterchange, PacksMadeHerePassTheChecksOfOthers) {
    fs::pack_writer writer;
    ASSERT_TRUE(writer.open(pack_.c_str()));
    int level = 0;
    for (const auto& [name, bytes] : sample())
        ASSERT_TRUE(writer.add(name.c_str(), bytes.data(), bytes.size(), level++ % 13, 0));
    ASSERT_TRUE(writer.add("\xC3\xA9tat.txt", "utf-8", 5, 6, 0) && writer.finish());
    EXPECT_EQ(run("unzip -v", "unzip -t out.pak"), 0);
    EXPECT_EQ(run("7z", "7z t out.pak"), 0);
    EXPECT_EQ(
        run("python3 --version", "python3 -c 'import zipfile; assert zipfile.ZipFile(\"out.pak\").testzip() is None'"),
        0);
}

// Long entries are frames with a table behind them, which other readers pass over.
TEST_F(PackInterchange, ZstdEntriesAreUnpackedByOthers) {
    const std::string text = noise((5 << 19) + 77, 1);
    fs::pack_writer writer;
    ASSERT_TRUE(writer.open(pack_.c_str()));
    if (!writer.add("long", text.data(), text.size(), 9, 0, EFSPackMethod::ZSTD)) GTEST_SKIP() << "no zstd";
    ASSERT_TRUE(writer.add("short", text.data(), 5000, 19, 0, EFSPackMethod::ZSTD) && writer.finish());
    ASSERT_EQ(run("bsdtar --version", "bsdtar -xf out.pak"), 0);
    if (tools_ != 0) EXPECT_TRUE(dir_.read("long") == text && dir_.read("short") == text.substr(0, 5000));
}

}  // namespace

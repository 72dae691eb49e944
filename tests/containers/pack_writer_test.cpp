// Packs that are made here, entry by entry and by the archives of hosts, and what others make of them.
#include <cstdlib>
#include <map>

#include "engine/platform/clock.h"
#include "engine/platform/files.h"
#include "tests/sources/pack/fixture.h"
#include "tests/support/mounted_root.h"

namespace {

using test::why;
using testing::HasSubstr;

const std::int64_t noon = platform::from_calendar({.year = 2024, .month = 2, .day = 29, .hour = 12});

class PackWriter : public testing::Test {
protected:
    std::string entry(const char* name) { return packs::content_of(target_, name); }
    bool add(const std::string& name, const std::string& data, int level = 6) {
        return writer_.add(name.c_str(), data.data(), data.size(), level, noon);
    }

    const TempDirectory dir_;
    fs::pack_writer writer_;
    const std::string target_ = dir_ / "out.pak";
};

TEST_F(PackWriter, WritesEntriesThatReadBackTheSame) {
    const std::string large = noise(500000, 1);
    const std::string packed_large = deflated(large, 9);
    const auto crc = static_cast<std::uint32_t>(crc32(0, reinterpret_cast<const Bytef*>(large.data()), 500000));
    ASSERT_TRUE(writer_.open(target_.c_str()));
    EXPECT_TRUE(add("Dir/Deflated.txt", large));
    EXPECT_TRUE(add("dir/stored.txt", large, 0));
    EXPECT_TRUE(add("empty", ""));
    EXPECT_TRUE(add("one", "1", 12));
    EXPECT_TRUE(writer_.add_deflated("given", packed_large.data(), packed_large.size(), large.size(), crc, noon));
    fs::entry_packer packer;
    SFsPackedEntry packed;
    EXPECT_TRUE(packer.pack(large.data(), large.size(), {.worth = 10}, packed) && packed.method == 8);
    EXPECT_TRUE(writer_.add_packed("before", packed, noon));
    EXPECT_TRUE(packer.pack("1", 1, {}, packed) && writer_.add_packed("short", packed, noon));
    EXPECT_FALSE(packer.pack("1", 1, {.level = 13}, packed));
    EXPECT_FALSE(packer.pack("1", 1, {.worth = 101}, packed));
    EXPECT_EQ(packed.bytes.size(), 1u) << "what fails leaves it alone";
    EXPECT_TRUE(packer.pack(large.data(), large.size(), {.worth = 90}, packed)) << "only copied";
    EXPECT_EQ(packed.bytes.size(), large.size() + 8 * 5);
    EXPECT_FALSE(dir_.exists("out.pak")) << "not before it is finished";
    ASSERT_TRUE(writer_.finish());
    EXPECT_FALSE(dir_.exists("out.pak.part"));
    for (const char* name : {"dir/deflated.txt", "dir/stored.txt", "given", "before"})
        EXPECT_EQ(entry(name), large) << name;
    EXPECT_EQ(entry("empty"), "");
    EXPECT_EQ(entry("one") + entry("short"), "11");
    const std::string bytes = read_file(target_);
    EXPECT_LT(bytes.size(), 3 * packed_large.size() + large.size() + 2000);
    EXPECT_THAT(bytes, HasSubstr(std::string("\x00\x60\x5D\x58", 4))) << "29 February 2024, 12:00";
}

TEST_F(PackWriter, LeavesTheTargetAloneUntilItIsFinished) {
    dir_.write("out.pak", "precious");
    ASSERT_TRUE(writer_.open(target_.c_str()) && add("a", "1"));
    writer_.cancel();
    EXPECT_FALSE(add("a", "1") || writer_.finish());
    ASSERT_TRUE(fs::pack_writer().open(target_.c_str()));
    EXPECT_FALSE(dir_.exists("out.pak.part")) << "it was forgotten";
    ASSERT_TRUE(writer_.open(target_.c_str()) && add("a", "1") && writer_.complete());
    EXPECT_EQ(dir_.read("out.pak"), "precious");
    EXPECT_FALSE(add("b", "2")) << "it has its directory already";
    ASSERT_TRUE(writer_.finish());
    EXPECT_EQ(entry("a"), "1");
}

// A name that only claims to be UTF-8 keeps other programs from reading the pack.
TEST_F(PackWriter, MarksNamesThatAreUtf8) {
    const std::pair<const char*, bool> rows[] = {
        {"plain", false},        {"\xC3\xA9", true},          {"\xE3\x83\x9D/x", true},    {"\xF0\x9F\x98\x80", true},
        {"\xE9.txt", false},     {"cut\xC3", false},          {"\xC0\xAF", false},         {"\xE0\x80\xAF", false},
        {"\xED\xA0\x80", false}, {"\xF4\x90\x80\x80", false}, {"\xF0\x80\x80\x80", false}, {"\xF5\x80\x80\x80", false},
        {"\x80", false},
    };
    for (const auto& [name, marked] : rows) {
        ASSERT_TRUE(writer_.open(target_.c_str()) && add(name, "1") && writer_.finish()) << name;
        EXPECT_EQ(read_file(target_).substr(6, 2), std::string(marked ? "\0\x08" : "\0\0", 2)) << name;
    }
}

TEST_F(PackWriter, RefusesNamesThatAPackCannotShow) {
    ASSERT_TRUE(writer_.open(target_.c_str()));
    ASSERT_TRUE(add("held", "1"));
    const std::pair<const char*, std::vector<std::string>> rows[] = {{"is empty", {""}},
                                                                     {"directory", {"dir/"}},
                                                                     {"full path", {"/root", "c:/x"}},
                                                                     {"climbs", {"../up"}},
                                                                     {"hidden", {"a/#b/c"}},
                                                                     {"normal form", {"a\\b", "a//b", "./a", "a/../b"}},
                                                                     {"longer", {std::string(260, 'n')}},
                                                                     {"of that name", {"held", "HELD"}}};
    for (const auto& [reason, names] : rows) {
        for (const std::string& name : names) {
            EXPECT_EQ(fs::pack_writer::check_name(name.c_str()), reason == std::string("of that name")) << name;
            EXPECT_FALSE(add(name, "2")) << name;
            EXPECT_THAT(fs::last_error().text, HasSubstr(reason)) << name;
        }
    }
    EXPECT_EQ(why(writer_.add("huge", "x", std::uint64_t{1} << 32, 0, noon)), EFSError::TOO_LARGE);
    EXPECT_FALSE(writer_.add_deflated("huge", "x", 1, std::uint64_t{1} << 32, 0, noon));
    EXPECT_FALSE(writer_.add("null", nullptr, 1, 0, noon));
    for (const int level : {-1, 13}) EXPECT_FALSE(add("level", "1", level));
    EXPECT_THAT(fs::last_error().text, HasSubstr("levels from 0 to 12"));
    ASSERT_TRUE(writer_.finish());
    EXPECT_EQ(entry("held"), "1") << "refused entries leave no trace";
}

TEST_F(PackWriter, WritesWhatDoesNotShrinkSoThatItCanBeSoughtIn) {
    std::string random(300000, '\0');
    std::mt19937 source(1);
    for (char& byte : random) byte = static_cast<char>(source());
    ASSERT_TRUE(writer_.open(target_.c_str()));
    EXPECT_TRUE(add("long", random) && add("short", random.substr(0, 32768)) && add("kept", random, 0));
    const bool zstd = writer_.add("zstd", random.data(), random.size(), 3, noon, EFSPackMethod::ZSTD);
    if (!zstd) EXPECT_EQ(fs::last_error().code, EFSError::UNSUPPORTED);
    EXPECT_FALSE(writer_.add("odd", "1", 1, 3, noon, static_cast<EFSPackMethod::TYPE>(9)));
    ASSERT_TRUE(writer_.finish());
    ztl::vector<SFsPackEntry> entries;
    ASSERT_TRUE(fs::list_pack(target_.c_str(), entries));
    ASSERT_EQ(entries.size(), zstd ? 4u : 3u);
    for (const SFsPackEntry& held : entries) {
        const bool is_stored = held.name == "short" || held.name == "kept";
        EXPECT_EQ(held.method, is_stored ? EFSPackMethod::STORE : EFSPackMethod::DEFLATE) << held.name;
        EXPECT_EQ(held.time, noon);
        EXPECT_TRUE(entry(held.name.c_str()) == random.substr(0, held.size));
    }
}

TEST_F(PackWriter, HoldsAsManyEntriesAsTheFormatCounts) {
    ASSERT_TRUE(writer_.open(target_.c_str()));
    for (int i = 0; i < 65535; ++i) ASSERT_TRUE(add(std::to_string(i), "x", 0)) << i;
    EXPECT_FALSE(add("one more", "x", 0));
    EXPECT_THAT(fs::last_error().text, HasSubstr("at most 65535"));
    ASSERT_TRUE(writer_.finish());
    EXPECT_EQ(entry("65534"), "x");
}

TEST_F(PackWriter, RefusesTargetsThatItCannotReplace) {
    dir_.write("out.pak", "precious");
    ASSERT_TRUE(platform::set_read_only(target_.c_str(), true));
    const std::string missing = dir_ / "missing/out.pak", long_path(255, 'n');
    for (const auto& [path, code] : {std::pair<const char*, EFSError::TYPE>(nullptr, EFSError::INVALID_NAME),
                                     {missing.c_str(), EFSError::NOT_FOUND},
                                     {dir_.path().c_str(), EFSError::INVALID_NAME},
                                     {long_path.c_str(), EFSError::INVALID_NAME},
                                     {target_.c_str(), EFSError::READ_ONLY}})
        EXPECT_EQ(why(writer_.open(path)), code) << testing::PrintToString(path);
    platform::set_read_only(target_.c_str(), false);
}

// Times are written as they are: what a pack says must not depend on where it was made.
TEST_F(PackWriter, TakesTheNearestTimeThatTheFormatHas) {
    const std::string first("\0\0\x21\0", 4), last("\x7D\xBF\x9F\xFF");
    for (const auto& [time, stored] : {std::pair(std::int64_t{0}, first), {-1, first}, {std::int64_t{1} << 60, last}}) {
        ASSERT_TRUE(writer_.open(target_.c_str()) && writer_.add("a", "1", 1, 0, time) && writer_.finish()) << time;
        EXPECT_EQ(read_file(target_).substr(10, 4), stored);
    }
}

TEST(Zstd, WritesFramesOfAMebibyteWithATableThatFindsThem) {
    if (!fs::has_zstd()) GTEST_SKIP() << "built without it";
    const auto compressor = fs::make_zstd_compressor();
    const std::string plain = noise((5 << 19) + 77, 1);
    const auto packed = compressor->compress(plain.data(), plain.size(), 3, plain.size());
    std::string out(plain.size(), '!');
    ASSERT_TRUE(fs::make_buffer_zstd_decoder()->decode(packed.data(), packed.size(), out.data(), out.size()));
    EXPECT_TRUE(out == plain);

    const std::uint8_t* const end = packed.data() + packed.size();
    const std::uint64_t table_size = fs::ZstdSeekTable::size_by_footer(end - fs::ZstdSeekTable::footer_size);
    ASSERT_EQ(table_size, 8u + 3 * 8 + 9);
    fs::ZstdSeekTable table;
    ASSERT_TRUE(table.read(end - table_size, table_size, packed.size(), plain.size()));
    EXPECT_TRUE(table.starts.size() == 3 && table.frame_size == 1u << 20);
    for (const std::size_t wrong : {0u, 1u})
        EXPECT_FALSE(table.read(end - table_size, table_size, packed.size() + wrong, plain.size() - 1 + wrong));
    EXPECT_TRUE(table.starts.empty());
    EXPECT_TRUE(compressor->compress(packed.data(), packed.size(), 3, packed.size()).empty()) << "not smaller";
    const auto one_frame = compressor->compress(plain.data(), 1000, 19, 1000);
    EXPECT_EQ(fs::ZstdSeekTable::size_by_footer(one_frame.data() + one_frame.size() - 9), 0u);
}

// Packs and other people's tools: theirs mount here and read back the same, ours pass their checks. A tool that is not
// installed is passed over.

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
    // Long entries are frames with a table behind them, which other readers pass over.
    const std::string text = noise((5 << 19) + 77, 1);
    ASSERT_TRUE(writer.open(pack_.c_str()));
    if (!writer.add("long", text.data(), text.size(), 9, 0, EFSPackMethod::ZSTD)) return;
    ASSERT_TRUE(writer.add("short", text.data(), 5000, 19, 0, EFSPackMethod::ZSTD) && writer.finish());
    const int others = tools_;
    ASSERT_EQ(run("bsdtar --version", "bsdtar -xf out.pak"), 0);
    if (tools_ > others) EXPECT_TRUE(dir_.read("long") == text && dir_.read("short") == text.substr(0, 5000));
}

class Zip : public MountedRoot {
protected:
    std::string entry(const char* file, const char* name) { return packs::content_of(directory_ / file, name); }
};

TEST_F(Zip, WritesAnArchiveThatIsAPack) {
    const std::string large = noise(300000, 1);
    void* zip = MiniZ::ZipCreate("Out/New.pak");
    ASSERT_TRUE(zip);
    EXPECT_TRUE(MiniZ::ZipAddData(zip, "Dir/Large.bin", large.data(), static_cast<unsigned>(large.size())));
    for (const char* name : {"", "/root", static_cast<const char*>(nullptr)})
        EXPECT_FALSE(MiniZ::ZipAddData(zip, name, "abc", 3));
    EXPECT_FALSE(MiniZ::ZipAddData(zip, "y", "abc", 0) || MiniZ::ZipAddData(zip, "y", nullptr, 3));
    platform::inject_fault(platform::FaultPoint::WRITE, 1, platform::Failure::DISK_FULL, false);
    EXPECT_EQ(why(MiniZ::ZipAddData(zip, "y", large.data(), 200000)), EFSError::DISK_FULL);
    platform::clear_faults();
    EXPECT_TRUE(MiniZ::ZipAddData(zip, "y", "still usable", 12)) << "one failed add used to lose the whole archive";
    for (void* const closed : {zip, zip, static_cast<void*>(nullptr)}) {
        MiniZ::ZipClose(closed);
        EXPECT_EQ(why(MiniZ::ZipAddData(closed, "z", "abc", 3)), EFSError::INVALID_ARGUMENT);
    }
    EXPECT_EQ(entry("out/new.pak", "dir/large.bin"), large);
    EXPECT_EQ(entry("out/new.pak", "y") + entry("out/new.pak", "z"), "still usable(null)");
    directory_.write("plain", "");
    directory_.write("shadowed", "");
    fs::refresh();
    const std::string pack = directory_ / "first.pak";
    ASSERT_TRUE(write_pack(pack, {{"shadowed", "x"}}) && fs::add_source(pack.c_str()));
    for (const char* path : {"plain/below.pak", "shadowed", "", static_cast<const char*>(nullptr)}) {
        fs::clear_error();
        EXPECT_EQ(MiniZ::ZipCreate(path), nullptr);
        EXPECT_NE(fs::last_error().code, EFSError::NONE);
    }
    EXPECT_FALSE(std::filesystem::exists("shadowed")) << "in the working directory, by the name of the pack's entry";
}

// Both ends of a copied archive used to close it.
TEST_F(Zip, AnArchiveClosesTheOldOneBeforeTheNewAndItsCopiesCloseItOnce) {
    MiniZ::Archive archive;
    EXPECT_FALSE(archive.AddData("a", "1", 1));
    ASSERT_TRUE(archive.Create("one.pak"));
    EXPECT_TRUE(archive.AddData("a", fs::string("text")));
    EXPECT_FALSE(archive.AddData("b", fs::string()));
    EXPECT_EQ(entry("one.pak", "a"), "(no pack)") << "not finished yet";
    EXPECT_TRUE(MiniZ::Archive(archive).AddData("c", "1", 1));
    EXPECT_EQ(entry("one.pak", "a") + entry("one.pak", "c"), "text1");
    EXPECT_FALSE(archive.AddData("a", "1", 1) || archive.Create("") || archive.AddData("a", "1", 1));
}

}  // namespace

#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <engine/filesystem/access/monitor.h>
#include <engine/filesystem/contract/error.h>
#include <engine/filesystem/handles.h>

#include "engine/filesystem/contract/file_ptr.h"
#include "engine/platform/faults.h"
#include "tests/support/temp_directory.h"

namespace {

constexpr std::uint64_t failed = ~std::uint64_t{0};

using fs::FilePtr;

constexpr FFSOpenFlags::FLAGS flags_of(std::uint32_t bits) { return static_cast<FFSOpenFlags::FLAGS>(bits); }

FilePtr open(const std::string& path, EFSMode::TYPE mode, std::uint32_t flags = 0) {
    return FilePtr(fs::open_native(nullptr, path.c_str(), mode, flags_of(flags)));
}

std::string read_all(SFsFile& file, std::size_t most = 1000) {
    std::string text(most, '\0');
    const std::uint64_t got = file.read(text.data(), most);
    return got == failed ? "failed" : text.substr(0, got);
}

TEST(NativeOpen, ModeAndFlagsDecideWhetherAFileIsOpenedCutOrMade) {
    struct Row {
        const char* label;
        EFSMode::TYPE mode;
        std::uint32_t flags;
        bool existing;  // whether the file is there before
        bool opens;
        const char* after;  // content after writing "new" where the mode writes
    };
    const Row rows[] = {
        {"read", EFSMode::READ, 0, true, true, "old text"},
        {"read missing", EFSMode::READ, 0, false, false, nullptr},
        {"read with create is a read", EFSMode::READ, 0x20, false, false, nullptr},
        {"write cuts", EFSMode::WRITE, 0, true, true, "new"},
        {"write missing", EFSMode::WRITE, 0, false, false, nullptr},
        {"write create", EFSMode::WRITE, 0x20, false, true, "new"},
        {"write create over", EFSMode::WRITE, 0x22, true, true, "new"},
        {"append", EFSMode::APPEND, 0, true, true, "old textnew"},
        {"append missing", EFSMode::APPEND, 0, false, false, nullptr},
        {"append never creates", EFSMode::APPEND, 0x20, false, false, nullptr},
        {"append gzip 5", EFSMode::APPEND, 0x004, true, false, "old text"},
        {"read-write", EFSMode::READ_WRITE, 0, true, true, "new text"},
        {"read-write missing", EFSMode::READ_WRITE, 0, false, false, nullptr},
        {"read-write create", EFSMode::READ_WRITE, 0x20, true, true, "new"},
        {"read-write gzip 1", EFSMode::READ_WRITE, 0x200, true, false, "old text"},
        {"read-write create and gzip", EFSMode::READ_WRITE, 0x30, true, false, "old text"},
        {"mode 4", static_cast<EFSMode::TYPE>(4), 0, true, false, "old text"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        const TempDirectory directory;
        if (row.existing) directory.write("a.txt", "old text");
        FilePtr file = open(directory / "a.txt", row.mode, row.flags);
        EXPECT_EQ(file != nullptr, row.opens);
        if (file != nullptr && row.mode != EFSMode::READ) EXPECT_EQ(file->write("new", 3), 3u);
        file.reset();
        EXPECT_EQ(directory.exists("a.txt"), row.after != nullptr);
        if (row.after != nullptr) EXPECT_EQ(directory.read("a.txt"), row.after);
    }
}

TEST(NativeOpen, FailsForWhatIsNoPathOfAFile) {
    const TempDirectory directory;
    EXPECT_EQ(fs::open_native(nullptr, nullptr, EFSMode::READ, FFSOpenFlags::NONE), nullptr);
    for (const std::string& path :
         {std::string(), directory.path(), directory / std::string(260, 'x'), directory / "con", directory / "a?b"}) {
        EXPECT_EQ(open(path, EFSMode::READ), nullptr) << path;
        EXPECT_EQ(open(path, EFSMode::WRITE, 0x20), nullptr) << path;
    }
}

TEST(NativeOpen, PlainFilesSeekAndCut) {
    const TempDirectory directory;
    const FilePtr file = open(directory / "a.bin", EFSMode::READ_WRITE, 0x20);
    ASSERT_NE(file, nullptr);
    EXPECT_STREQ(fs::file_name(file.get()), "");
    EXPECT_EQ(file->write("0123456789", 10), 10u);
    EXPECT_TRUE(file->seek(-4, EFSSeek::END));
    EXPECT_EQ(read_all(*file), "6789");
    EXPECT_TRUE(file->seek(3, EFSSeek::BEGIN));
    EXPECT_TRUE(file->set_eof());
    EXPECT_EQ(file->length(), 3u);
    EXPECT_FALSE(file->seek(-1, EFSSeek::BEGIN));
    EXPECT_FALSE(file->seek(1, static_cast<EFSSeek::TYPE>(3)));
    EXPECT_EQ(file->tell(), 3u);
    EXPECT_FALSE(file->read_async(nullptr, 0, 1, nullptr, 0));
}

TEST(NativeOpen, GzipLevelsWriteWhatGzipReadsAndDamageIsReported) {
    const TempDirectory directory;
    const std::string path = directory / "a.gz";
    std::string text;
    for (int i = 0; i < 5000; ++i) text += "line " + std::to_string(i * 31 % 977) + "\n";
    for (const std::uint32_t level : {0x004u, 0x008u, 0x200u}) {
        SCOPED_TRACE(level);
        FilePtr out = open(path, EFSMode::WRITE, level);
        ASSERT_NE(out, nullptr);
        EXPECT_EQ(out->write(text.data(), text.size()), text.size());
        EXPECT_EQ(out->length(), failed);
        out.reset();
        EXPECT_EQ(directory.read("a.gz").substr(0, 2), "\x1f\x8b");
        const FilePtr in = open(path, EFSMode::READ, 0x10);
        ASSERT_NE(in, nullptr);
        EXPECT_TRUE(in->seek(1000, EFSSeek::BEGIN));
        EXPECT_EQ(in->tell(), 1000u);
        EXPECT_TRUE(read_all(*in, 100000) == text.substr(1000));
        EXPECT_FALSE(in->seek(0, EFSSeek::END));
    }
    const std::string whole = directory.read("a.gz");
    directory.write("a.gz", whole.substr(0, whole.size() / 2));
    EXPECT_EQ(read_all(*open(path, EFSMode::READ, 0x10), 100000), "failed");
    EXPECT_EQ(fs::last_error().code, EFSError::BAD_FORMAT);
    directory.write("plain.txt", "not gzip");
    EXPECT_EQ(read_all(*open(directory / "plain.txt", EFSMode::READ, 0x10)), "not gzip");
}

// The gap used to be filled from memory that nobody had cleared.
TEST(NativeOpen, AGzipWriterThatOnlySeeksWritesZeros) {
    const TempDirectory directory;
    for (const std::size_t gap : {1u, 20000u, 300000u}) {
        for (int i = 0; i < 4; ++i) std::vector<char>(200000, 'x');  // what the buffers may get
        FilePtr out = open(directory / "a.gz", EFSMode::WRITE, 0x200);
        ASSERT_NE(out, nullptr);
        EXPECT_TRUE(out->seek(static_cast<std::int64_t>(gap), EFSSeek::BEGIN));
        out.reset();
        EXPECT_TRUE(read_all(*open(directory / "a.gz", EFSMode::READ, 0x10), 400000) == std::string(gap, '\0')) << gap;
    }
}

TEST(NativeOpen, AnOpenThatFailsLeavesTheFileAndSaysWhy) {
    struct Row {
        const char* label;
        EFSMode::TYPE mode;
        std::uint32_t flags;
        platform::FaultPoint point;
        bool existing;
    };
    using platform::FaultPoint;
    const Row rows[] = {
        {"asynchronous read", EFSMode::READ, 0x40, FaultPoint::OPEN, true},
        {"write", EFSMode::WRITE, 0, FaultPoint::OPEN, true},
        {"gzip write", EFSMode::WRITE, 0x4, FaultPoint::OPEN, true},
        {"gzip write cannot empty", EFSMode::WRITE, 0x4, FaultPoint::SET_END, true},
        {"gzip write of a new file", EFSMode::WRITE, 0x4, FaultPoint::SET_END, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        const TempDirectory directory;
        if (row.existing) directory.write("a.txt", "old text");
        fs::clear_error();
        platform::inject_fault(row.point, 1, platform::Failure::DISK_FULL, true);
        EXPECT_EQ(open(directory / "a.txt", row.mode, row.flags), nullptr);
        platform::clear_faults();
        EXPECT_EQ(fs::last_error().code, EFSError::DISK_FULL);
        EXPECT_EQ(directory.exists("a.txt"), row.existing);
        if (row.existing) EXPECT_EQ(directory.read("a.txt"), "old text");
        EXPECT_NE(open(directory / "a.txt", EFSMode::WRITE, 0x20), nullptr) << "a handle is left";
    }
}

class RecordingMonitor : public fs::IFsMonitor {
public:
    void touch_file(const char* path, EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags) override {
        heard += std::string(path) + " " + std::to_string(mode) + " " + std::to_string(flags) + "\n";
    }
    std::string heard;
};

TEST(NativeOpen, TheMonitorHearsOfOpensThatSucceed) {
    const TempDirectory directory;
    const std::string path = directory.write("a.txt", "x");
    RecordingMonitor monitor;
    EXPECT_EQ(fs::set_monitor(&monitor), nullptr);
    open(path, EFSMode::READ);
    open(directory / "missing", EFSMode::READ);
    open(path, EFSMode::WRITE, 0x2);
    fs::monitor_touch_file("touched");
    EXPECT_EQ(fs::set_monitor(nullptr), &monitor);
    fs::monitor_touch_file("after");
    EXPECT_EQ(monitor.heard, path + " 0 0\n" + path + " 1 2\ntouched 0 0\n");
}

}  // namespace

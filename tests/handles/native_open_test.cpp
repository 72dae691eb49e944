#include <optional>
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

using fs::FilePtr;
using platform::FaultPoint;

constexpr std::uint64_t failed = ~std::uint64_t{0};

struct NativeOpen : testing::Test {
    FilePtr open(EFSMode::TYPE mode, std::uint32_t flags = 0) const {
        return FilePtr(fs::open_native(nullptr, path.c_str(), mode, static_cast<FFSOpenFlags::FLAGS>(flags)));
    }
    /// What one read of the file as gzip gives.
    std::string unzipped() const {
        const FilePtr file = open(EFSMode::READ, 0x10);
        std::string text(400000, '\0');
        const std::uint64_t got = fs::read(file.get(), text.data(), text.size());
        return got == failed ? "failed" : text.substr(0, got);
    }
    const TempDirectory directory;
    const std::string path = directory / "a.txt";
};

TEST_F(NativeOpen, ModeAndFlagsDecideWhetherAFileIsOpenedCutOrMade) {
    struct Row {
        const char* label;
        EFSMode::TYPE mode;
        std::uint32_t flags;
        bool existing;  // whether the file is there before
        bool opens;
        const char* after;                              // content after writing "new" where the mode writes
        std::optional<FaultPoint> full = std::nullopt;  // what meets a full disk
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
        {"asynchronous read fails", EFSMode::READ, 0x40, true, false, "old text", FaultPoint::OPEN},
        {"write fails", EFSMode::WRITE, 0, true, false, "old text", FaultPoint::OPEN},
        {"gzip write fails", EFSMode::WRITE, 0x4, true, false, "old text", FaultPoint::OPEN},
        {"gzip write cannot empty", EFSMode::WRITE, 0x4, true, false, "old text", FaultPoint::SET_END},
        {"gzip write of a new file", EFSMode::WRITE, 0x4, false, false, nullptr, FaultPoint::SET_END},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        std::filesystem::remove(path);
        if (row.existing) directory.write("a.txt", "old text");
        fs::clear_error();
        if (row.full) platform::inject_fault(*row.full, 1, platform::Failure::DISK_FULL, true);
        FilePtr file = open(row.mode, row.flags);
        platform::clear_faults();
        EXPECT_EQ(file != nullptr, row.opens);
        EXPECT_EQ(fs::last_error().code == EFSError::NONE, row.opens);
        if (row.full) EXPECT_EQ(fs::last_error().code, EFSError::DISK_FULL);
        if (file != nullptr && row.mode != EFSMode::READ) EXPECT_EQ(file->write("new", 3), 3u);
        file.reset();
        EXPECT_EQ(directory.exists("a.txt"), row.after != nullptr);
        if (row.after != nullptr) EXPECT_EQ(directory.read("a.txt"), row.after);
        EXPECT_NE(open(EFSMode::WRITE, 0x20), nullptr) << "a handle is left";
    }
    EXPECT_EQ(fs::open_native(nullptr, nullptr, EFSMode::WRITE, FFSOpenFlags::CREATE), nullptr);
}

TEST_F(NativeOpen, GzipLevelsWriteWhatGzipReadsAndDamageIsReported) {
    std::string text;
    for (int i = 0; i < 5000; ++i) text += "line " + std::to_string(i * 31 % 977) + "\n";
    for (const std::uint32_t level : {0x004u, 0x008u, 0x200u}) {
        SCOPED_TRACE(level);
        FilePtr out = open(EFSMode::WRITE, level);
        ASSERT_NE(out, nullptr);
        EXPECT_EQ(out->write(text.data(), text.size()), text.size());
        out.reset();
        EXPECT_EQ(directory.read("a.txt").substr(0, 2), "\x1f\x8b");
        EXPECT_TRUE(unzipped() == text);
    }
    const std::string whole = directory.read("a.txt");
    directory.write("a.txt", whole.substr(0, whole.size() / 2));
    EXPECT_EQ(unzipped(), "failed");
    EXPECT_EQ(fs::last_error().code, EFSError::BAD_FORMAT);
    directory.write("a.txt", "not gzip");
    EXPECT_EQ(unzipped(), "not gzip");
}

// The gap used to be filled from memory that nobody had cleared.
TEST_F(NativeOpen, AGzipWriterThatOnlySeeksWritesZeros) {
    for (const std::size_t gap : {1u, 20000u, 300000u}) {
        for (int i = 0; i < 4; ++i) std::vector<char>(200000, 'x');  // what the buffers may get
        EXPECT_TRUE(open(EFSMode::WRITE, 0x200)->seek(static_cast<std::int64_t>(gap), EFSSeek::BEGIN));
        EXPECT_TRUE(unzipped() == std::string(gap, '\0')) << gap;
    }
}

struct RecordingMonitor : fs::IFsMonitor {
    void touch_file(const char* path, EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags) override {
        heard += std::string(path) + " " + std::to_string(mode) + " " + std::to_string(flags) + "\n";
    }
    std::string heard;
};

TEST_F(NativeOpen, TheMonitorHearsOfOpensThatSucceed) {
    RecordingMonitor monitor;
    EXPECT_EQ(fs::set_monitor(&monitor), nullptr);
    open(EFSMode::READ);
    open(EFSMode::WRITE, 0x22);
    fs::monitor_touch_file("touched");
    EXPECT_EQ(fs::set_monitor(nullptr), &monitor);
    fs::monitor_touch_file("after");
    EXPECT_EQ(monitor.heard, path + " 1 34\ntouched 0 0\n");
}

}  // namespace

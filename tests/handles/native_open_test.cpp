#include "engine/filesystem/contract/file.h"
#include "tests/sources/kit.h"
#include "tests/support/failure.h"

namespace {

using fs::FilePtr;

struct NativeOpen : testing::Test {
    FilePtr open(EFSMode::TYPE mode, std::uint32_t flags = 0) const {
        return FilePtr(fs::open_native(nullptr, path.c_str(), mode, static_cast<FFSOpenFlags::FLAGS>(flags)));
    }
    /// What one read of the file as gzip gives.
    std::string unzipped() const {
        const FilePtr file = open(EFSMode::READ, 0x10);
        std::string text;
        return fs::read_rest(file.get(), text) ? text : "failed";
    }
    const TempDirectory directory;
    const std::string path = directory / "a.txt";
};

TEST_F(NativeOpen, ModeAndFlagsDecideWhetherAFileIsOpenedCutOrMade) {
    using enum EFSMode::TYPE;
    struct Row {
        const char* label;
        EFSMode::TYPE mode;
        std::uint32_t flags;
        bool existing;  // whether the file is there before
        bool opens;
        const char* after;     // content after writing "new" where the mode writes
        bool is_full = false;  // the disk, when the end is set
    };
    const Row rows[] = {
        {"read with create is a read", READ, 0x20, false, false, nullptr},
        {"write missing", WRITE, 0, false, false, nullptr},
        {"append never creates", APPEND, 0x20, false, false, nullptr},
        {"append gzip 5", APPEND, 0x004, true, false, "old text"},
        {"read-write missing", READ_WRITE, 0, false, false, nullptr},
        {"read-write create", READ_WRITE, 0x20, true, true, "new"},
        {"read-write create and gzip", READ_WRITE, 0x30, true, false, "old text"},
        {"mode 4", static_cast<EFSMode::TYPE>(4), 0, true, false, "old text"},
        {"gzip write cannot empty", WRITE, 0x4, true, false, "old text", true},
        {"gzip write of a new file", WRITE, 0x4, false, false, nullptr, true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        std::filesystem::remove(path);
        if (row.existing) directory.write("a.txt", "old text");
        fs::clear_error();
        if (row.is_full) platform::inject_fault(platform::FaultPoint::SET_END, 1, platform::Failure::DISK_FULL, true);
        FilePtr file = open(row.mode, row.flags);
        platform::clear_faults();
        EXPECT_EQ(fs::last_error().code == EFSError::NONE, row.opens);
        EXPECT_EQ(file != nullptr, row.opens);
        if (row.is_full) EXPECT_EQ(fs::last_error().code, EFSError::DISK_FULL);
        if (file != nullptr) EXPECT_EQ(file->write("new", 3), 3u);
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
        EXPECT_EQ(open(EFSMode::WRITE, level)->write(text.data(), text.size()), text.size());
        EXPECT_EQ(directory.read("a.txt").substr(0, 2), "\x1f\x8b");
        EXPECT_TRUE(unzipped() == text) << level;
    }
    const std::string whole = directory.read("a.txt");
    directory.write("a.txt", whole.substr(0, whole.size() / 2));
    EXPECT_EQ(unzipped(), "failed");
    EXPECT_EQ(test::why(false), EFSError::BAD_FORMAT);
    directory.write("a.txt", "not gzip");
    EXPECT_EQ(unzipped(), "not gzip");
    // The gap that a writer seeks over used to be filled from memory that nobody had cleared.
    for (const std::size_t gap : {1u, 20000u, 300000u}) {
        for (int i = 0; i < 4; ++i) std::vector<char>(200000, 'x');  // what the buffers may get
        EXPECT_TRUE(open(EFSMode::WRITE, 0x200)->seek(static_cast<std::int64_t>(gap), EFSSeek::BEGIN));
        EXPECT_TRUE(unzipped() == std::string(gap, '\0')) << gap;
    }
}

TEST_F(NativeOpen, TheMonitorHearsOfOpensThatSucceed) {
    RecordingMonitor monitor;
    open(EFSMode::READ);
    open(EFSMode::WRITE, 0x22);
    fs::monitor_touch_file("touched");
    EXPECT_EQ(fs::set_monitor(nullptr), &monitor);
    fs::monitor_touch_file("after");
    EXPECT_EQ(monitor.touched, (std::vector<std::string>{"a.txt 1+34", "touched 0+0"}));
    struct : fs::IFsMonitor {
        void touch_file(const char*, EFSMode::TYPE, FFSOpenFlags::FLAGS) override { throw 1; }
    } thrower;
    fs::set_monitor(&thrower);
    EXPECT_EQ(test::why(open(EFSMode::READ)), EFSError::IO);
    fs::monitor_touch_file("touched");
    fs::set_monitor(nullptr);
}

}  // namespace

#include <gtest/gtest.h>

#include <engine/filesystem/contract/error.h>
#include <engine/filesystem/streams/bfile.h>

#include "../support/temp_directory.h"
#include "engine/platform/faults.h"
#include "kit.h"

namespace {

struct BufferedNative : testing::Test {
    ~BufferedNative() override { platform::clear_faults(); }
    TempDirectory directory;
    const std::string path = directory / "file.bin";
};

TEST_F(BufferedNative, OpensByMode) {
    struct Row {
        const char* label;
        EFSMode::TYPE mode;
        FFSOpenFlags::FLAGS flags;
        bool opens;
        std::uint64_t position;
        bool knows_length = true;
    };
    const Row rows[] = {
        {"asynchronous is passed over", EFSMode::READ, FFSOpenFlags::ASYNC, true, 0},
        {"append", EFSMode::APPEND, FFSOpenFlags::NONE, true, 3},
        {"append would write over the beginning", EFSMode::APPEND, FFSOpenFlags::NONE, false, 0, false},
        {"gzip", EFSMode::READ, FFSOpenFlags::GZIP, false, 0},
        {"no mode", static_cast<EFSMode::TYPE>(4), FFSOpenFlags::NONE, false, 0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        directory.write("file.bin", "abc");
        fs::bfile_win32 stream;
        if (!row.knows_length) platform::inject_fault(platform::FaultPoint::LENGTH, 1, platform::Failure::OTHER, true);
        fs::clear_error();
        EXPECT_EQ(stream.open(path.c_str(), row.mode, row.flags), row.opens);
        platform::clear_faults();
        EXPECT_EQ(fs::last_error().code == EFSError::NONE, row.opens);
        EXPECT_EQ(stream.is_open(), row.opens);
        EXPECT_EQ(stream.name() != nullptr, row.opens);
        EXPECT_EQ(stream.tell(), row.opens ? row.position : UINT64_MAX);
    }
}

TEST_F(BufferedNative, KeepsWhatCouldNotBeWrittenAndTellsOfIt) {
    const std::string bytes = sample_bytes(100);
    fs::bfile_win32 stream(16);
    ASSERT_TRUE(stream.open(path.c_str(), EFSMode::WRITE, FFSOpenFlags::CREATE));
    platform::inject_fault(platform::FaultPoint::WRITE, 1, platform::Failure::DISK_FULL, true);
    EXPECT_EQ(stream.write(bytes.data(), 10), 10u);
    EXPECT_EQ(stream.length(), 10u) << "with what is pending";
    EXPECT_EQ(stream.write(bytes.data() + 10, 10), 6u) << "what the buffer holds";
    EXPECT_EQ(stream.write(bytes.data() + 16, 10), UINT64_MAX);
    EXPECT_TRUE(stream.failed());
    EXPECT_FALSE(stream.flush());
    EXPECT_EQ(stream.tell(), 16u);
    EXPECT_EQ(directory.read("file.bin"), "");
    platform::clear_faults();
    EXPECT_TRUE(stream.flush()) << "nothing is lost once there is room again";
    EXPECT_FALSE(stream.failed());
    EXPECT_EQ(stream.write(bytes.data() + 16, 84), 84u);
    stream.close();
    EXPECT_EQ(directory.read("file.bin"), bytes);

    for (const auto point : {platform::FaultPoint::WRITE, platform::FaultPoint::SET_END}) {
        ASSERT_TRUE(stream.open(path.c_str(), EFSMode::READ_WRITE));
        stream.write("x", 1);
        platform::inject_fault(point, 1, platform::Failure::DISK_FULL, true);
        stream.set_eof();
        EXPECT_TRUE(stream.failed());
        stream.close();
        EXPECT_TRUE(stream.failed()) << "also after close";
        platform::clear_faults();
    }
}

}  // namespace

#include "kit.h"

namespace {

struct BufferedNative : testing::Test {
    ~BufferedNative() override { platform::clear_faults(); }
    TempDirectory directory;
    const std::string path = directory / "file.bin";
};

TEST_F(BufferedNative, OpensByMode) {
    directory.write("file.bin", "abc");
    fs::bfile_win32 stream;
    EXPECT_TRUE(stream.open(path.c_str(), EFSMode::READ, FFSOpenFlags::ASYNC)) << "which is passed over";
    EXPECT_TRUE(stream.open(path.c_str(), EFSMode::APPEND) && stream.is_open());
    EXPECT_EQ(stream.tell(), 3u);
    EXPECT_EQ(test::why(stream.open(path.c_str(), EFSMode::READ, FFSOpenFlags::GZIP)), EFSError::INVALID_ARGUMENT);
    EXPECT_EQ(test::why(stream.open(path.c_str(), static_cast<EFSMode::TYPE>(4))), EFSError::INVALID_ARGUMENT);
    platform::inject_fault(platform::FaultPoint::LENGTH, 1, platform::Failure::DISK_FULL, true);
    EXPECT_EQ(test::why(stream.open(path.c_str(), EFSMode::APPEND)), EFSError::DISK_FULL) << "not over the beginning";
    EXPECT_FALSE(stream.is_open());
    EXPECT_EQ(stream.name(), nullptr);
    EXPECT_EQ(stream.tell(), UINT64_MAX);
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

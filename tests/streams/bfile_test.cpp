#include <gtest/gtest.h>

#include <random>

#include <engine/filesystem/contract/error.h>
#include <engine/filesystem/streams/bfile.h>

#include "../support/temp_directory.h"
#include "engine/platform/faults.h"
#include "recording_file.h"

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
        bool exists;
        bool opens;
        std::uint64_t length;
        std::uint64_t position;
        bool reads;
        bool writes;
    };
    const Row rows[] = {
        {"read", EFSMode::READ, FFSOpenFlags::NONE, true, true, 3, 0, true, false},
        {"read what is not there", EFSMode::READ, FFSOpenFlags::CREATE, false, false, 0, 0, false, false},
        {"write truncates", EFSMode::WRITE, FFSOpenFlags::NONE, true, true, 0, 0, false, true},
        {"write needs the file", EFSMode::WRITE, FFSOpenFlags::NONE, false, false, 0, 0, false, false},
        {"write creates", EFSMode::WRITE, FFSOpenFlags::CREATE, false, true, 0, 0, false, true},
        {"append", EFSMode::APPEND, FFSOpenFlags::NONE, true, true, 3, 3, false, true},
        {"append needs the file", EFSMode::APPEND, FFSOpenFlags::NONE, false, false, 0, 0, false, false},
        {"both", EFSMode::READ_WRITE, FFSOpenFlags::NONE, true, true, 3, 0, true, true},
        {"both, created", EFSMode::READ_WRITE, FFSOpenFlags::CREATE, true, true, 0, 0, true, true},
        {"gzip", EFSMode::READ, FFSOpenFlags::GZIP, true, false, 0, 0, false, false},
        {"no mode", static_cast<EFSMode::TYPE>(4), FFSOpenFlags::NONE, true, false, 0, 0, false, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        std::filesystem::remove(path);
        if (row.exists) directory.write("file.bin", "abc");
        fs::bfile_win32 stream;
        ASSERT_EQ(stream.open(path.c_str(), row.mode, row.flags), row.opens);
        EXPECT_EQ(stream.name() != nullptr, row.opens);
        const std::uint64_t none = UINT64_MAX;
        EXPECT_EQ(stream.length(), row.opens ? row.length : none);
        EXPECT_EQ(stream.tell(), row.opens ? row.position : none);
        char byte = 0;
        EXPECT_EQ(stream.read(&byte, 0), row.reads ? 0 : none);
        EXPECT_EQ(stream.write("x", 1), row.writes ? 1 : none);
    }
}

TEST_F(BufferedNative, DoesNotOpenAFileWhoseLengthIsNotKnown) {
    directory.write("file.bin", "abc");
    fs::bfile_win32 stream;
    std::uint32_t nth = 1;
    for (bool is_open = false; !is_open; ++nth) {
        platform::inject_fault(platform::FaultPoint::STAT, nth, platform::Failure::OTHER, false);
        is_open = stream.open(path.c_str(), EFSMode::APPEND);
        EXPECT_TRUE(!is_open || stream.tell() == 3u) << "never at the beginning of what is there";
        platform::clear_faults();
        stream.close();
        ASSERT_LT(nth, 10u);
    }
    EXPECT_EQ(directory.read("file.bin"), "abc");
}

TEST_F(BufferedNative, CountsWhatIsPending) {
    fs::bfile_win32 stream(16);
    ASSERT_TRUE(stream.open(path.c_str(), EFSMode::WRITE, FFSOpenFlags::CREATE));
    stream << "hello";
    stream.put_int(7);
    EXPECT_EQ(stream.length(), 11u);
    EXPECT_EQ(stream.tell(), 11u);
    EXPECT_EQ(directory.read("file.bin"), "") << "nothing has reached the disk";
    EXPECT_TRUE(stream.flush());
    EXPECT_EQ(directory.read("file.bin").size(), 11u);
    EXPECT_TRUE(stream.seek(4, EFSSeek::BEGIN));
    stream.write("X", 1);
    stream.set_eof();
    EXPECT_EQ(stream.length(), 5u);
    EXPECT_TRUE(stream.seek(8, EFSSeek::BEGIN));
    EXPECT_EQ(stream.length(), 5u);
    stream.write("Y", 1);
    EXPECT_FALSE(stream.seek(-1, EFSSeek::BEGIN));
    stream.close();
    EXPECT_EQ(directory.read("file.bin"), std::string("\5\0heX\0\0\0Y", 9));
    EXPECT_FALSE(stream.failed());
}

/// The same operations on a string.
struct Model {
    std::string bytes;
    std::size_t at = 0;

    std::string read(std::size_t size) {
        const std::size_t there = at < bytes.size() ? std::min(size, bytes.size() - at) : 0;
        const std::string got = there == 0 ? "" : bytes.substr(at, there);
        at += there;
        return got;
    }
    void write(const std::string& data) {
        if (data.empty()) return;
        if (bytes.size() < at + data.size()) bytes.resize(at + data.size());
        bytes.replace(at, data.size(), data);
        at += data.size();
    }
};

TEST_F(BufferedNative, BehavesAsAnUnbufferedFileUnderRandomUse) {
    for (const std::uint32_t buffer_size : {1u, 7u, 64u, 1000u}) {
        std::mt19937 random(buffer_size);
        Model model{sample_bytes(300)};
        directory.write("file.bin", model.bytes);
        fs::bfile_win32 stream(buffer_size);
        ASSERT_TRUE(stream.open(path.c_str(), EFSMode::READ_WRITE));
        for (int step = 0; step < 5000; ++step) {
            const std::size_t size = random() % (random() % 8 == 0 ? 200 : 9);
            switch (random() % 6) {
                case 0:
                case 1: {
                    std::string got(size, '\0');
                    got.resize(stream.read(got.data(), size));
                    ASSERT_EQ(got, model.read(size)) << buffer_size << " " << step;
                    break;
                }
                case 2:
                case 3: {
                    const std::string data = sample_bytes(size, static_cast<std::uint32_t>(random()));
                    ASSERT_EQ(stream.write(data.data(), size), size);
                    model.write(data);
                    break;
                }
                case 4:
                    model.at = random() % (model.bytes.size() + 20);
                    ASSERT_TRUE(stream.seek(static_cast<std::int64_t>(model.at), EFSSeek::BEGIN));
                    break;
                default:
                    if (random() % 20 == 0) {
                        stream.set_eof();
                        model.bytes.resize(model.at);
                    } else {
                        EXPECT_TRUE(stream.flush());
                    }
            }
            ASSERT_EQ(stream.tell(), model.at);
            ASSERT_EQ(stream.length(), model.bytes.size());
        }
        stream.close();
        EXPECT_EQ(directory.read("file.bin"), model.bytes) << buffer_size;
    }
}

TEST_F(BufferedNative, KeepsWhatCouldNotBeWrittenAndTellsOfIt) {
    const std::string bytes = sample_bytes(100);
    fs::bfile_win32 stream(16);
    ASSERT_TRUE(stream.open(path.c_str(), EFSMode::WRITE, FFSOpenFlags::CREATE));
    platform::inject_fault(platform::FaultPoint::WRITE, 1, platform::Failure::DISK_FULL, true);
    EXPECT_EQ(stream.write(bytes.data(), 10), 10u);
    EXPECT_EQ(stream.write(bytes.data() + 10, 10), 6u) << "what the buffer holds";
    EXPECT_EQ(stream.write(bytes.data() + 16, 10), UINT64_MAX);
    EXPECT_TRUE(stream.failed());
    EXPECT_FALSE(stream.flush());
    EXPECT_EQ(fs::last_error().code, EFSError::DISK_FULL);
    EXPECT_EQ(stream.tell(), 16u);
    platform::clear_faults();
    EXPECT_TRUE(stream.flush()) << "nothing is lost once there is room again";
    EXPECT_FALSE(stream.failed());
    EXPECT_EQ(stream.write(bytes.data() + 16, 84), 84u);
    stream.close();
    EXPECT_EQ(directory.read("file.bin"), bytes);

    ASSERT_TRUE(stream.open(path.c_str(), EFSMode::READ_WRITE));
    stream.write("x", 1);
    platform::inject_fault(platform::FaultPoint::WRITE, 1, platform::Failure::DISK_FULL, true);
    stream.close();
    EXPECT_TRUE(stream.failed()) << "also after close";
}

TEST_F(BufferedNative, SurvivesShortAndFailingReads) {
    const std::string bytes = sample_bytes(100);
    directory.write("file.bin", bytes);
    fs::bfile_win32 stream(16);
    ASSERT_TRUE(stream.open(path.c_str(), EFSMode::READ));
    platform::inject_fault(platform::FaultPoint::READ, 2, platform::Failure::OTHER, false);
    std::string got(100, '\0');
    EXPECT_EQ(stream.read(got.data(), 4), 4u);
    EXPECT_EQ(stream.read(got.data() + 4, 15), 12u) << "what came before the failure";
    EXPECT_EQ(stream.read(got.data() + 16, 84), 84u);
    EXPECT_EQ(got, bytes);
    EXPECT_EQ(stream.read(got.data(), 1), 0u);
}

}  // namespace

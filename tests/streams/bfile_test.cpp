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
        bool exists, opens, reads, writes;
        std::uint64_t length, position;
    };
    const Row rows[] = {
        {"read", EFSMode::READ, FFSOpenFlags::ASYNC, true, true, true, false, 3, 0},
        {"read what is not there", EFSMode::READ, FFSOpenFlags::CREATE, false, false, false, false, 0, 0},
        {"write truncates", EFSMode::WRITE, FFSOpenFlags::NONE, true, true, false, true, 0, 0},
        {"write creates", EFSMode::WRITE, FFSOpenFlags::CREATE, false, true, false, true, 0, 0},
        {"append", EFSMode::APPEND, FFSOpenFlags::NONE, true, true, false, true, 3, 3},
        {"append needs the file", EFSMode::APPEND, FFSOpenFlags::NONE, false, false, false, false, 0, 0},
        {"both", EFSMode::READ_WRITE, FFSOpenFlags::NONE, true, true, true, true, 3, 0},
        {"gzip", EFSMode::READ, FFSOpenFlags::GZIP, true, false, false, false, 0, 0},
        {"no mode", static_cast<EFSMode::TYPE>(4), FFSOpenFlags::NONE, true, false, false, false, 0, 0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        std::filesystem::remove(path);
        if (row.exists) directory.write("file.bin", "abc");
        fs::bfile_win32 stream;
        ASSERT_EQ(stream.open(path.c_str(), row.mode, row.flags), row.opens);
        EXPECT_EQ(stream.is_open(), row.opens);
        if (!row.opens) continue;
        EXPECT_EQ(stream.length(), row.length);
        EXPECT_EQ(stream.tell(), row.position);
        char byte = 0;
        EXPECT_EQ(stream.read(&byte, 0), row.reads ? 0 : UINT64_MAX);
        EXPECT_EQ(stream.write("x", 1), row.writes ? 1 : UINT64_MAX);
    }
}

TEST_F(BufferedNative, DoesNotOpenAFileWhoseLengthIsNotKnown) {
    directory.write("file.bin", "abc");
    fs::bfile_win32 stream;
    platform::inject_fault(platform::FaultPoint::LENGTH, 1, platform::Failure::OTHER, true);
    EXPECT_FALSE(stream.open(path.c_str(), EFSMode::APPEND)) << "it would write over the beginning";
    EXPECT_EQ(fs::last_error().code, EFSError::IO);
    EXPECT_EQ(stream.name(), nullptr);
}

/// The same operations on a string.
struct Model {
    std::string bytes;
    std::size_t at = 0;

    std::string read(std::size_t size) {
        const std::string got = at < bytes.size() ? bytes.substr(at, size) : "";
        at += got.size();
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
            const auto action = random() % 12;
            if (action < 4) {
                std::string got(size, '\0');
                got.resize(stream.read(got.data(), size));
                ASSERT_EQ(got, model.read(size)) << buffer_size << " " << step;
            } else if (action < 8) {
                const std::string data = sample_bytes(size, static_cast<std::uint32_t>(random()));
                ASSERT_EQ(stream.write(data.data(), size), size);
                model.write(data);
            } else if (action < 10) {
                model.at = random() % (model.bytes.size() + 20);
                ASSERT_TRUE(stream.seek(static_cast<std::int64_t>(model.at), EFSSeek::BEGIN));
                EXPECT_FALSE(stream.seek(-1, EFSSeek::BEGIN));
            } else if (random() % 20 == 0) {
                stream.set_eof();
                model.bytes.resize(model.at);
            } else {
                EXPECT_TRUE(stream.flush());
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

    ASSERT_TRUE(stream.open(path.c_str(), EFSMode::READ_WRITE));
    stream.write("x", 1);
    platform::inject_fault(platform::FaultPoint::WRITE, 1, platform::Failure::DISK_FULL, true);
    stream.close();
    EXPECT_TRUE(stream.failed()) << "also after close";
}

}  // namespace

// Streams with a buffer: what they ask of their file, and when.
#include <functional>

#include "kit.h"
#include "tests/support/memory_source.h"

namespace {

using platform::Failure;
using platform::FaultPoint;
using test::why;

/// What happened to a file, kept by the test because the stream destroys the file itself.
struct FileRecord {
    explicit FileRecord(const std::string& content = "") : bytes(std::make_shared<std::string>(content)) {}
    const test::Bytes bytes;                // shared with the file while that is open
    std::vector<std::uint64_t> reads = {};  // sizes asked for
    std::vector<test::Write> writes = {};
    bool fails_to_read = false;  // without a reason
};

class RecordingFile : public test::MemoryFile {
public:
    explicit RecordingFile(FileRecord& record) : MemoryFile(nullptr, "", record.bytes, 0), record_(record) {
        writes = &record.writes;
    }
    std::uint64_t read(void* buffer, std::uint64_t size) override {
        record_.reads.push_back(size);
        return record_.fails_to_read ? UINT64_MAX : MemoryFile::read(buffer, size);
    }

private:
    FileRecord& record_;
};

std::string read_string(fs::ifile& stream, std::size_t size) {
    std::string bytes(size, '?');
    const std::uint64_t got = stream.read(bytes.data(), size);
    bytes.resize(got == UINT64_MAX ? 0 : got);
    return bytes;
}

TEST(CachedReader, SeeksByTheseRules) {
    using enum EFSSeek::TYPE;
    struct Row {
        std::int64_t offset;
        EFSSeek::TYPE origin;
        bool result;
        std::uint64_t position;
        std::size_t fetches;
    };
    const Row rows[] = {
        {100, BEGIN, true, 100, 0},        {5000, BEGIN, true, 5000, 1},
        {10000, BEGIN, false, 10000, 0},   {-1, BEGIN, false, UINT64_MAX, 0},
        {50, CURRENT, true, 60, 0},        {-10, CURRENT, true, 0, 0},
        {4086, CURRENT, true, 4096, 1},    {-5, END, true, 9995, 1},
        {5, END, true, 9995, 1},           {INT64_MIN, END, false, 10000 - (1ull << 63), 0},
        {1ll << 32, CURRENT, true, 10, 0},  // which 32 bits take for nothing
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::Message() << row.offset << " from " << row.origin);
        FileRecord record(noise(10000, 1));
        fs::cachedrdfile stream(4096);
        ASSERT_TRUE(stream.open_from_handle(new RecordingFile(record)));
        read_string(stream, 10);
        record.reads.clear();
        EXPECT_EQ(stream.seek(row.offset, row.origin), row.result);
        EXPECT_EQ(stream.tell(), row.position);
        EXPECT_EQ(record.reads.size(), row.fetches);
        EXPECT_EQ(read_string(stream, 3), row.result ? record.bytes->substr(row.position, 3) : "");
        EXPECT_EQ(record.reads.size(), row.fetches) << "each block once, as soon as the one before is used up";
    }
    fs::cachedrdfile stream(4096), without_buffer(0);
    EXPECT_FALSE(stream.open_from_handle(nullptr) || stream.open("no such file", EFSMode::READ));
    EXPECT_FALSE(stream.open("no such file", EFSMode::WRITE, FFSOpenFlags::CREATE));
    FileRecord record("x");
    without_buffer.open_from_handle(new RecordingFile(record));
    EXPECT_EQ(read_string(without_buffer, 1), "") << "and no endless loop";
    FileRecord two_blocks(noise(8192, 1));
    fs::cachedrdfile ahead(4096);
    ahead.open_from_handle(new RecordingFile(two_blocks));
    two_blocks.fails_to_read = record.fails_to_read = true;
    fs::clear_error();
    EXPECT_EQ(read_string(ahead, 4096).size(), 4096u);
    EXPECT_TRUE(ahead.seek(5000, BEGIN));
    EXPECT_EQ(fs::last_error().code, EFSError::NONE) << "nobody has needed the second block";
    EXPECT_EQ(why(read_string(ahead, 1) != ""), EFSError::IO);
    ahead.close();
    EXPECT_EQ(why(stream.open_from_handle(new RecordingFile(record))), EFSError::IO) << "where the file gave no reason";
}

TEST(CachedWriter, HandsItsImageOverInOneWriteThatEndsAtThePosition) {
    const auto move_back = [](auto& out) {
        out.write("abcdefgh", 8), out.seek(0, EFSSeek::END);
        EXPECT_EQ(out.tell(), 16u) << "the end counts from the capacity, which is never full";
        out.seek(5, EFSSeek::BEGIN);
    };
    const auto leave_gaps = [](auto& out) {
        out.write("abcd", 4), out.seek(20, EFSSeek::BEGIN), out.put_int(8), out.put_int(9);
        EXPECT_TRUE(out.seek(100, EFSSeek::CURRENT)) << "and grows";
    };
    const std::string gaps =
        "abcd" + std::string(16, '\0') + '\b' + std::string(3, '\0') + '\t' + std::string(103, '\0');
    const auto go_outside = [](auto& out) {
        out.write("ab", 2);
        for (const std::int64_t position : {std::int64_t{1000}, std::int64_t{-1}, INT64_MAX}) {
            EXPECT_TRUE(out.seek(position, EFSSeek::BEGIN));
            EXPECT_EQ(out.tell(), static_cast<std::uint64_t>(position));
            EXPECT_EQ(out.write("xxxx", 4), UINT64_MAX) << position;
        }
        out.seek(2, EFSSeek::BEGIN);
        EXPECT_FALSE(out.seek(INT64_MAX, EFSSeek::CURRENT)) << "no such memory";
        EXPECT_EQ(out.write("c", 1), 1u);
    };
    const std::tuple<std::uint64_t, std::function<void(fs::cachedwrfile&)>, std::string> rows[] = {
        {8, move_back, "abcde"}, {64, leave_gaps, gaps}, {8, go_outside, "abc"}};
    for (const auto& [grow_step, work, written] : rows) {
        SCOPED_TRACE(written.size());
        FileRecord record;
        {
            fs::cachedwrfile stream(grow_step);
            stream.open_from_handle(new RecordingFile(record));
            work(stream);
            EXPECT_TRUE(record.writes.empty()) << "nothing before the end";
        }
        EXPECT_EQ(record.writes.size(), 1u);
        EXPECT_TRUE(*record.bytes == written);
    }
    EXPECT_EQ(fs::cachedwrnoseekfile(0).write("x", 1), UINT64_MAX) << "and no endless loop";
    for (const std::uint64_t no_step : {std::uint64_t{0}, UINT64_MAX})
        EXPECT_EQ(fs::cachedwrfile(no_step).write("x", 1), UINT64_MAX) << "and no endless loop";
}

TEST(BufferedNative, KeepsWhatCouldNotBeWrittenAndTellsOfIt) {
    const TempDirectory directory;
    const std::string path = directory.write("file.bin", "abc");
    const std::string bytes = noise(100, 1);
    fs::bfile_win32 stream(16);
    EXPECT_TRUE(stream.open(path.c_str(), EFSMode::READ, FFSOpenFlags::ASYNC)) << "which is passed over";
    EXPECT_TRUE(stream.open(stream.name(), EFSMode::APPEND)) << "the name is read before it goes";
    EXPECT_EQ(stream.tell(), 3u);
    EXPECT_EQ(why(stream.open(path.c_str(), EFSMode::READ, FFSOpenFlags::GZIP)), EFSError::INVALID_ARGUMENT);
    platform::inject_fault(FaultPoint::LENGTH, 1, Failure::DISK_FULL, true);
    EXPECT_EQ(why(stream.open(path.c_str(), EFSMode::APPEND)), EFSError::DISK_FULL) << "not over the beginning";
    EXPECT_FALSE(stream.is_open());
    platform::clear_faults();

    ASSERT_TRUE(stream.open(path.c_str(), EFSMode::WRITE, FFSOpenFlags::CREATE));
    platform::inject_fault(FaultPoint::WRITE, 1, Failure::DISK_FULL, true);
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

    for (const auto point : {FaultPoint::WRITE, FaultPoint::SET_END}) {
        ASSERT_TRUE(stream.open(path.c_str(), EFSMode::READ_WRITE));
        stream.write("x", 1);
        platform::inject_fault(point, 1, Failure::DISK_FULL, true);
        stream.set_eof();
        EXPECT_TRUE(stream.failed());
        stream.close();
        EXPECT_TRUE(stream.failed()) << "also after close";
        platform::clear_faults();
    }
}

}  // namespace

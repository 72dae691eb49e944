#include <gmock/gmock.h>

#include <engine/filesystem/streams/cached.h>

#include "recording_file.h"

using testing::ElementsAre;

namespace {

std::string read_string(fs::ifile& stream, std::size_t size) {
    std::string bytes(size, '?');
    const std::uint64_t got = stream.read(bytes.data(), size);
    bytes.resize(got == UINT64_MAX ? 0 : got);
    return bytes;
}

struct CachedReader : testing::Test {
    CachedReader() {
        record.bytes = sample_bytes(10000);
        EXPECT_TRUE(stream.open_from_handle(new RecordingFile(record)));
    }
    FileRecord record;
    fs::cachedrdfile stream{4096};
};

TEST_F(CachedReader, FetchesEachBlockOnceAndEndsWithTheFile) {
    EXPECT_EQ(read_string(stream, 10000), record.bytes);
    EXPECT_THAT(record.reads, ElementsAre(4096, 4096, 4096));
    EXPECT_EQ(read_string(stream, 1), "");
    EXPECT_EQ(record.reads.size(), 3u);
    EXPECT_TRUE(stream.eof());
}

TEST_F(CachedReader, FetchesTheNextBlockAsSoonAsOneIsUsedUp) {
    EXPECT_EQ(read_string(stream, 4095).size(), 4095u);
    EXPECT_EQ(record.reads.size(), 1u);
    EXPECT_EQ(read_string(stream, 1), record.bytes.substr(4095, 1));
    EXPECT_EQ(record.reads.size(), 2u);
    EXPECT_EQ(stream.tell(), 4096u);
}

TEST(CachedReaderSeek, GoesByTheseRules) {
    struct Row {
        const char* label;
        std::int64_t offset;
        EFSSeek::TYPE origin;
        bool result;
        std::uint64_t position;
        std::size_t fetches;
    };
    const Row rows[] = {
        {"inside the block", 100, EFSSeek::BEGIN, true, 100, 0},
        {"another block", 5000, EFSSeek::BEGIN, true, 5000, 1},
        {"the end", 10000, EFSSeek::BEGIN, false, 10000, 0},
        {"before the beginning", -1, EFSSeek::BEGIN, false, UINT64_MAX, 0},
        {"forward inside the block", 50, EFSSeek::CURRENT, true, 60, 0},
        {"back inside the block", -10, EFSSeek::CURRENT, true, 0, 0},
        {"forward out of the block", 4086, EFSSeek::CURRENT, true, 4096, 1},
        {"back from the end, minus", -5, EFSSeek::END, true, 9995, 1},
        {"back from the end, plus", 5, EFSSeek::END, true, 9995, 1},
        {"the end itself", 0, EFSSeek::END, false, 10000, 0},
        {"further back than there is", INT64_MIN, EFSSeek::END, false, 10000 - (1ull << 63), 0},
        {"4 GiB forward, which 32 bits take for nothing", 1ll << 32, EFSSeek::CURRENT, true, 10, 0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        FileRecord record{.bytes = sample_bytes(10000)};
        fs::cachedrdfile stream(4096);
        ASSERT_TRUE(stream.open_from_handle(new RecordingFile(record)));
        read_string(stream, 10);
        record.reads.clear();
        EXPECT_EQ(stream.seek(row.offset, row.origin), row.result);
        EXPECT_EQ(stream.tell(), row.position);
        EXPECT_EQ(record.reads.size(), row.fetches);
        EXPECT_EQ(read_string(stream, 3), row.result ? record.bytes.substr(row.position, 3) : "");
    }
}

TEST(CachedReaderFailures, AreToldFromTheEnd) {
    FileRecord record{.bytes = sample_bytes(10000), .failing_read = 1};
    fs::cachedrdfile stream(4096);
    ASSERT_TRUE(stream.open_from_handle(new RecordingFile(record)));
    EXPECT_EQ(read_string(stream, 5000), record.bytes.substr(0, 4096)) << "what was there comes first";
    record.failing_read = 2;
    char byte = 0;
    fs::clear_error();
    EXPECT_EQ(stream.read(&byte, 1), UINT64_MAX);
    EXPECT_EQ(fs::last_error().code, EFSError::IO);
    EXPECT_EQ(read_string(stream, 5), record.bytes.substr(4096, 5)) << "a later read tries again";

    FileRecord bad{.bytes = "x", .failing_read = 0};
    fs::cachedrdfile refused(16);
    EXPECT_FALSE(refused.open_from_handle(new RecordingFile(bad)));
    fs::cachedrdfile without_handle(16);
    EXPECT_FALSE(without_handle.open_from_handle(nullptr));
    EXPECT_EQ(without_handle.read(&byte, 1), UINT64_MAX);
    fs::cachedrdfile without_buffer(0);
    without_buffer.open_from_handle(new RecordingFile(record));
    EXPECT_EQ(without_buffer.read(&byte, 1), 0u) << "and no endless loop";
}

TEST(CachedReaderOpen, IsForReadingOnly) {
    fs::cachedrdfile stream(16);
    EXPECT_FALSE(stream.open("no such file", EFSMode::WRITE, FFSOpenFlags::CREATE));
    EXPECT_FALSE(stream.open("no such file", EFSMode::READ));
}

TEST(CachedWriterWithoutSeek, WritesFullBuffersAndTheRestAtClose) {
    FileRecord record;
    fs::cachedwrnoseekfile stream(16);
    EXPECT_EQ(stream.tell(), UINT64_MAX);
    stream.open_from_handle(new RecordingFile(record));
    const std::string bytes = sample_bytes(40);
    EXPECT_EQ(stream.write(bytes.data(), 7), 7u);
    EXPECT_EQ(stream.write(bytes.data() + 7, 33), 33u);
    EXPECT_EQ(stream.tell(), 40u);
    EXPECT_FALSE(stream.seek(0, EFSSeek::BEGIN));
    EXPECT_THAT(record.writes, ElementsAre(16, 16));
    stream.close();
    EXPECT_THAT(record.writes, ElementsAre(16, 16, 8));
    EXPECT_TRUE(record.closed);
    EXPECT_EQ(record.bytes, bytes);
    EXPECT_EQ(fs::cachedwrnoseekfile(0).write("x", 1), UINT64_MAX) << "and no endless loop";
}

TEST(CachedWriters, SayAtCloseThatBytesAreLostOnAFullDisk) {
    const std::string bytes = sample_bytes(40);
    fs::cachedwrnoseekfile by_blocks(16);
    fs::cachedwrfile by_image(16);
    for (fs::file* stream : {static_cast<fs::file*>(&by_blocks), static_cast<fs::file*>(&by_image)}) {
        FileRecord record{.bytes = "", .capacity = 20};
        stream->open_from_handle(new RecordingFile(record));
        EXPECT_EQ(stream->write(bytes.data(), 40), 40u);
        fs::clear_error();
        stream->close();
        EXPECT_EQ(fs::last_error().code, EFSError::DISK_FULL);
        EXPECT_EQ(record.bytes, bytes.substr(0, 20)) << "a part of the last write landed";
        FileRecord healthy{.bytes = ""};
        stream->open_from_handle(new RecordingFile(healthy));
        fs::clear_error();
        stream->write(bytes.data(), 40);
        stream->close();
        EXPECT_EQ(fs::last_error().code, EFSError::NONE);
        EXPECT_EQ(healthy.bytes, bytes);
    }
}

TEST(CachedWriter, WritesTheImageUpToThePositionInOnePiece) {
    const std::string bytes = sample_bytes(20);
    FileRecord record;
    fs::cachedwrfile stream(8);
    stream.open_from_handle(new RecordingFile(record));
    EXPECT_EQ(stream.write(bytes.data(), 20), 20u);
    EXPECT_TRUE(record.writes.empty());
    stream.seek(10, EFSSeek::BEGIN);
    stream.close();
    EXPECT_THAT(record.writes, ElementsAre(10));
    EXPECT_EQ(record.bytes, bytes.substr(0, 10));
    {
        FileRecord destroyed;
        {
            fs::cachedwrfile other(8);
            other.open_from_handle(new RecordingFile(destroyed));
            other.write("abc", 3);
        }
        EXPECT_EQ(destroyed.bytes, "abc");
    }
}

TEST(CachedWriter, KeepsShortValuesWhereverItWentInBetween) {
    FileRecord record;
    fs::cachedwrfile stream(64);
    stream.open_from_handle(new RecordingFile(record));
    for (int i = 1; i <= 4; ++i) stream.put_int(i);
    stream.seek(0, EFSSeek::BEGIN);
    stream.put_int(7);
    stream.seek(20, EFSSeek::BEGIN);
    stream.put_int(8);
    stream.put_int(9);
    stream.close();
    std::string expected(28, '\0');
    for (const auto& [at, value] : {std::pair{0, 7}, {4, 2}, {8, 3}, {12, 4}, {20, 8}, {24, 9}})
        expected[static_cast<std::size_t>(at)] = static_cast<char>(value);
    EXPECT_EQ(record.bytes, expected) << "only the gap is zeros";
}

TEST(CachedWriter, HoldsALargeImage) {
    const std::string bytes = sample_bytes(9'000'000);
    FileRecord record;
    fs::cachedwrfile stream(100'000);
    stream.open_from_handle(new RecordingFile(record));
    for (std::size_t at = 0; at < bytes.size(); at += 30'000) stream.write(bytes.data() + at, 30'000);
    stream.close();
    EXPECT_THAT(record.writes, ElementsAre(bytes.size()));
    EXPECT_TRUE(record.bytes == bytes);
}

TEST(CachedWriter, CountsTheEndFromItsCapacity) {
    struct Row {
        std::uint64_t written;
        std::uint64_t capacity;
    };
    for (const Row& row : {Row{0, 8}, Row{7, 8}, Row{8, 16}, Row{20, 24}, Row{24, 32}}) {
        fs::cachedwrfile stream(8);
        stream.write(sample_bytes(row.written).data(), row.written);
        EXPECT_TRUE(stream.seek(0, EFSSeek::END));
        EXPECT_EQ(stream.tell(), row.capacity) << row.written;
    }
}

TEST(CachedWriter, FillsAGapWithZerosAndRefusesToWriteOutsideTheImage) {
    FileRecord record;
    fs::cachedwrfile stream(8);
    stream.open_from_handle(new RecordingFile(record));
    stream.write("ab", 2);
    EXPECT_TRUE(stream.seek(30, EFSSeek::CURRENT));
    EXPECT_EQ(stream.write("c", 1), 1u);
    const std::uint64_t here = stream.tell();
    EXPECT_EQ(here, 33u);
    for (const std::int64_t outside : {std::int64_t{1000}, std::int64_t{-1}, INT64_MAX}) {
        EXPECT_TRUE(stream.seek(outside, EFSSeek::BEGIN));
        EXPECT_EQ(stream.write("x", 1), UINT64_MAX) << outside;
    }
    stream.seek(static_cast<std::int64_t>(here), EFSSeek::BEGIN);
    EXPECT_FALSE(stream.seek(INT64_MAX, EFSSeek::CURRENT)) << "no such memory";
    stream.close();
    EXPECT_EQ(record.bytes, "ab" + std::string(30, '\0') + "c");
    EXPECT_EQ(fs::cachedwrfile(0).write("x", 1), UINT64_MAX) << "and no endless loop";
    EXPECT_EQ(fs::cachedwrfile(UINT64_MAX).write("x", 1), UINT64_MAX);
}

}  // namespace

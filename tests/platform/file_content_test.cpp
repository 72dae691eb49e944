#include <memory>

#include "tests/platform/disk.h"

// What is inside a file, and where in it one stands.

namespace {

using namespace disk;

class FileContent : public DiskTest {};

TEST_F(FileContent, MoveAndEndWhereTold) {
    File file = File::open("file", {.access = Access::READ_WRITE, .disposition = Disposition::TRUNCATE_OR_CREATE});
    ASSERT_EQ(file.write("0123456789", 10), 10u);
    const struct {
        std::int64_t offset;
        Origin origin;
        bool works;
        std::uint64_t position;
    } rows[] = {
        {3, Origin::BEGIN, true, 3},
        {2, Origin::CURRENT, true, 5},
        {-4, Origin::CURRENT, true, 1},
        {-2, Origin::CURRENT, false, 1},
        {-1, Origin::BEGIN, false, 1},
        {-10, Origin::END, true, 0},
        {-11, Origin::END, false, 0},
        {5, Origin::END, true, 15},
        {0x200000000, Origin::BEGIN, true, 0x200000000},
        {0x7FFFFFFFFFFFFFFF, Origin::BEGIN, true, 0x7FFFFFFFFFFFFFFF},
        {1, Origin::CURRENT, false, 0x7FFFFFFFFFFFFFFF},
        {4, Origin::BEGIN, true, 4},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.offset);
        EXPECT_EQ(file.seek(row.offset, row.origin), row.works);
        EXPECT_EQ(file.tell(), row.position);
    }
    EXPECT_TRUE(file.set_end());
    EXPECT_EQ(file.length(), 4u);
    EXPECT_TRUE(file.seek(8, Origin::BEGIN));
    EXPECT_TRUE(file.set_end());
    EXPECT_TRUE(file.sync());
    file.close();
    EXPECT_EQ(read_file("file"), std::string("0123\0\0\0\0", 8));
}

TEST_F(FileContent, TellEndOfFileFromFailure) {
    write_file("file", "0123456789");
    File file = File::open("file", for_reading);
    char buffer[16] = {};
    EXPECT_EQ(file.read(buffer, 4), 4u);
    EXPECT_EQ(file.read_at(buffer, 16, 7), 3u);
    EXPECT_EQ(std::string(buffer, 4), "7893");
    EXPECT_EQ(file.read_at(buffer, 16, 10), 0u);
    EXPECT_EQ(file.read_at(buffer, 16, 0x100000000), 0u);
    EXPECT_EQ(file.tell(), 4u) << "a read at an offset leaves the position";
    EXPECT_EQ(file.read(buffer, 16), 6u);
    EXPECT_EQ(file.read(buffer, 16), 0u);
    EXPECT_EQ(file.read(buffer, 0), 0u);
    EXPECT_EQ(file.write("x", 1), all_ones);
    EXPECT_FALSE(file.set_end());

    File none;
    for (const std::uint64_t answer :
         {none.read(buffer, 1), none.write(buffer, 1), none.read_at(buffer, 1, 0), none.length(), none.tell()}) {
        EXPECT_EQ(answer, all_ones);
    }
    EXPECT_FALSE(none.seek(0, Origin::BEGIN) || none.set_end() || none.cancel());
    EXPECT_EQ(none.duplicate_descriptor(false), -1);
    EXPECT_EQ(last_error().failure, Failure::INVALID_HANDLE);
}

TEST_F(FileContent, ReadUnbufferedUpToAnUnevenEnd) {
    write_file("file", std::string(9999, 'x') + "y");
    const File file = File::open("file", {.unbuffered = true, .overlapped = true});
    ASSERT_TRUE(file.valid());
    const std::uint64_t alignment = file.alignment();
    ASSERT_TRUE(alignment >= 1 && 65536 % alignment == 0) << alignment;
    const std::unique_ptr<char[]> block(new char[2 * 65536]);
    char* const aligned = block.get() + (65536 - reinterpret_cast<std::uintptr_t>(block.get()) % 65536);
    EXPECT_EQ(file.read_at(aligned, 65536, 0), 10000u);
    EXPECT_EQ(aligned[9999], 'y');
    EXPECT_EQ(file.read_at(aligned, 65536, 65536), 0u);
}

TEST_F(FileContent, CompleteOverlappedReads) {
    write_file("file", "0123456789");
    File file = File::open("file", {.overlapped = true});
    SNativeOverlapped* const record = create_overlapped();
    ASSERT_NE(record, nullptr);
    const struct {
        std::uint64_t offset;
        int status;
        std::uint32_t bytes;
    } rows[] = {{0, 1, 4}, {8, 1, 2}, {10, 2, 0}, {4, 1, 4}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.offset);
        char buffer[4] = {};
        std::uint32_t bytes = 99;
        set_overlapped_offset(record, row.offset);
        int status = file.read_overlapped(buffer, 4, &bytes, record);
        if (status == 0) status = wait_overlapped(file, record, &bytes);
        EXPECT_EQ(status, row.status);
        if (status != 1) continue;
        EXPECT_EQ(bytes, row.bytes);
        EXPECT_EQ(buffer[0], static_cast<char>('0' + row.offset));
    }
    destroy_overlapped(record);
}

}  // namespace

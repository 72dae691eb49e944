#include <memory>
#include <tuple>

#include "tests/platform/disk.h"

// What is inside a file, and where in it one stands.

namespace {

using namespace disk;

class FileContent : public DiskTest {};

TEST_F(FileContent, MoveAndEndWhereTold) {
    File file = File::open("file", {.access = Access::READ_WRITE, .disposition = Disposition::TRUNCATE_OR_CREATE});
    ASSERT_EQ(file.write("0123456789", 10), 10u);
    const std::tuple<std::int64_t, Origin, bool, std::uint64_t> rows[] = {
        {3, Origin::BEGIN, true, 3},
        {-2, Origin::CURRENT, true, 1},
        {-2, Origin::CURRENT, false, 1},
        {-1, Origin::BEGIN, false, 1},
        {-11, Origin::END, false, 1},
        {5, Origin::END, true, 15},
        {0x7FFFFFFFFFFFFFFF, Origin::BEGIN, true, 0x7FFFFFFFFFFFFFFF},
        {1, Origin::CURRENT, false, 0x7FFFFFFFFFFFFFFF},
        {4, Origin::BEGIN, true, 4},
    };
    for (const auto& [offset, origin, works, position] : rows) {
        EXPECT_EQ(file.seek(offset, origin), works) << offset;
        EXPECT_EQ(file.tell(), position) << offset;
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

}  // namespace

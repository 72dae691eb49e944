#include "kit.h"

namespace {

TEST(MemoryStream, DropsWhatDoesNotFit) {
    unsigned char block[4];
    fs::memfile stream;
    ASSERT_TRUE(stream.open_from_memory(EFSMode::WRITE, block, sizeof(block), false));
    EXPECT_EQ(stream.write("abcdef", 6), 4u);
    EXPECT_EQ(stream.write("g", 1), 0u);
    EXPECT_TRUE(stream.seek(-2, EFSSeek::END));
    stream.set_eof();
    EXPECT_EQ(stream.length(), 2u);
    EXPECT_TRUE(stream.set_size(100));
    EXPECT_EQ(stream.length(), 4u) << "no more than the block holds";
    EXPECT_FALSE(stream.seek(5, EFSSeek::BEGIN));
    EXPECT_EQ(stream.tell(), 2u);
    stream.open_from_memory(EFSMode::READ, block, 0x100000005ull, false);
    EXPECT_TRUE(stream.set_current_pos(5));
    EXPECT_FALSE(stream.set_current_pos(6)) << "the size counts as a signed 32-bit number";
}

TEST(MemoryStream, WithoutMemoryIsEmpty) {
    fs::memfile block;
    block.open_from_memory(EFSMode::READ, nullptr, 100, false);
    fs::vectorfile vector;
    vector.open_from_memory(EFSMode::WRITE, nullptr, false);
    for (fs::ifile* stream : {static_cast<fs::ifile*>(&block), static_cast<fs::ifile*>(&vector)}) {
        char buffer[4];
        EXPECT_EQ(stream->read(buffer, 4), 0u);
        EXPECT_EQ(stream->write("x", 1), 0u);
        EXPECT_TRUE(stream->seek(0, EFSSeek::END));
        EXPECT_FALSE(stream->seek(1, EFSSeek::BEGIN));
    }
}

TEST(VectorFile, KeepsTheContentsAndGrows) {
    VectorStream vector;
    fs::vectorfile& stream = vector.stream;
    stream.write("ab", 2);
    stream.open_from_memory(EFSMode::WRITE, &vector.bytes, false);
    EXPECT_TRUE(stream.seek(10, EFSSeek::BEGIN));
    EXPECT_EQ(vector.written(), "ab" + std::string(8, '\0'));
    EXPECT_TRUE(stream.seek(1, EFSSeek::BEGIN));
    const std::string text(20, 'x');
    EXPECT_EQ(stream.write(text.data(), 20), 20u);
    EXPECT_EQ(vector.written(), "a" + text) << "over the end in one write";
    vector.bytes.resize(5);
    EXPECT_EQ(stream.write("y", 1), 1u) << "also after the owner shortened the vector";
    EXPECT_EQ(vector.bytes.size(), 22u);
    EXPECT_FALSE(stream.set_current_pos(0x80000000ll));
    EXPECT_FALSE(stream.set_size(UINT64_MAX));
    EXPECT_EQ(stream.tell(), 22u);
}

TEST(InMemoryFile, TakesNoBytesAndMayHaveNoBlock) {
    FileInMemory file(nullptr, 0);
    char letter = 'x';
    EXPECT_EQ(test::why(file.write(&letter, 1) != UINT64_MAX), EFSError::UNSUPPORTED);
    EXPECT_EQ(test::why(file.read(&letter, 1) != UINT64_MAX), EFSError::INVALID_ARGUMENT);
}

}  // namespace

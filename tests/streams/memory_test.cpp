// Streams over memory, plain and as members of gzip.
#include "kit.h"

using namespace std::string_literals;

namespace {

struct Gzip : testing::Test, VectorStream {};

TEST_F(Gzip, WritesAHeaderRawDeflateAndATrailer) {
    const std::string header = "\x1F\x8B\x08\0\0\0\0\0\0\x0B"s;
    EXPECT_EQ(gzip_member_of("abc"), header + "\x4B\x4C\x4A\x06\0\xC2\x41\x24\x35\x03\0\0\0"s);
    EXPECT_EQ(gzip_member_of(""), header + "\x03\0"s + std::string(8, '\0'));
}

TEST_F(Gzip, WritingCountsPlainBytesAndSeeksForwardOnly) {
    ASSERT_TRUE(stream.open_from_memory(EFSMode::WRITE, &bytes, true));
    EXPECT_EQ(stream.length_zipped(), 10u);
    stream.write("ab", 2);
    EXPECT_TRUE(stream.seek(5000, EFSSeek::BEGIN));
    EXPECT_TRUE(stream.seek(3, EFSSeek::CURRENT));
    EXPECT_EQ(stream.tell(), 5003u);
    EXPECT_FALSE(stream.seek(5, EFSSeek::BEGIN));
    EXPECT_FALSE(stream.seek(-1, EFSSeek::CURRENT));
    EXPECT_FALSE(stream.seek(0, EFSSeek::END));
    EXPECT_TRUE(stream.finish());
    const std::size_t size = bytes.size();
    EXPECT_TRUE(stream.finish());
    EXPECT_EQ(bytes.size(), size) << "the trailer is written once";
    EXPECT_EQ(test::why(stream.write("x", 1)), EFSError::INVALID_ARGUMENT);
    stream.close();
    EXPECT_FALSE(stream.finish());
    ASSERT_TRUE(start_reading(written(), true));
    EXPECT_EQ(read_all(stream), "ab" + std::string(5001, '\0'));
    stream.close();
    bytes.clear();
    ASSERT_TRUE(stream.open_from_memory(EFSMode::WRITE, &bytes, true)) << "the same object again";
    stream.write("abc", 3);
    stream.flush();
    stream.close();
    EXPECT_EQ(written(), gzip_member_of("abc")) << "flush ends the data, close adds the trailer";
}

TEST_F(Gzip, WritingNoticesAStorageThatIsFull) {
    const std::string plain = noise(200000, 1);
    unsigned char block[6000];
    fs::memfile small;
    ASSERT_TRUE(small.open_from_memory(EFSMode::WRITE, block, sizeof(block), true));
    EXPECT_LT(small.write(plain.data(), plain.size()), plain.size());
    EXPECT_EQ(small.write("x", 1), 0u);
    EXPECT_EQ(small.tell(), UINT64_MAX);
    fs::clear_error();
    EXPECT_TRUE(small.finish()) << "whatever became of the trailer";
    EXPECT_EQ(fs::last_error().code, EFSError::DISK_FULL);
    fs::clear_error();
    small.close();
    EXPECT_EQ(fs::last_error().code, EFSError::DISK_FULL);
    ASSERT_TRUE(small.open_from_memory(EFSMode::READ, block, sizeof(block), true));
    EXPECT_FALSE(small.check_zip_crc());
}

TEST_F(Gzip, ReadsInPiecesOfAnySizeAndSeeksBothWaysInWhatZlibWroteToo) {
    const TempDirectory directory;
    const std::string path = directory / "a.gz";
    const std::string plain = noise(300000, 1);
    fs::file_native file;
    directory.write("a.gz", gzip_member_of(plain));
    ASSERT_TRUE(file.open(path.c_str(), EFSMode::READ, FFSOpenFlags::GZIP));
    EXPECT_TRUE(read_all(file) == plain) << "by zlib";
    file.close();
    ASSERT_TRUE(file.open(path.c_str(), EFSMode::WRITE, FFSOpenFlags::GZIP_LEVEL1));
    EXPECT_EQ(file.write(plain.data(), plain.size()), plain.size());
    file.close();
    for (const std::string& member : {gzip_member_of(plain), directory.read("a.gz")}) {
        ASSERT_TRUE(start_reading(member + gzip_member_of("another"), true));
        EXPECT_EQ(stream.length_zipped(), 4096u) << "raw bytes are fetched in blocks";
        for (const std::size_t piece : {std::size_t{1}, std::size_t{4096}, std::size_t{131072}, plain.size() + 1}) {
            fs::clear_error();
            EXPECT_TRUE(read_all(stream, piece) == plain) << piece << ", and no further member";
            EXPECT_EQ(fs::last_error().code, EFSError::NONE);
            EXPECT_TRUE(stream.seek(0, EFSSeek::BEGIN));
        }
        EXPECT_TRUE(stream.seek(300000, EFSSeek::BEGIN));
        EXPECT_FALSE(stream.seek(1, EFSSeek::CURRENT)) << "past the end";
        EXPECT_TRUE(stream.seek(-5, EFSSeek::CURRENT)) << "and back from there";
        EXPECT_EQ(read_all(stream), plain.substr(plain.size() - 5));
        EXPECT_TRUE(stream.seek(77, EFSSeek::BEGIN));
        EXPECT_TRUE(stream.check_zip_crc());
        EXPECT_EQ(stream.tell(), 77u) << "checking comes back to where it was";
    }
}

TEST_F(Gzip, PassesOverEveryHeaderField) {
    const std::string body = gzip_member_of("abc").substr(10);
    const std::string start = "\x1F\x8B\x08"s;
    const std::string rest = "\1\2\3\4\5\6"s;
    const std::tuple<const char*, std::string, bool> rows[] = {
        {"extra field with 255s", start + "\x04" + rest + "\4\0\xFF\xFF\0\1"s, true},
        {"every field", start + "\x1F" + rest + "\1\0xn\xFFme\0comment\0\xFF\0"s, true},
        {"reserved flag", start + "\x20" + rest, false},
        {"another method", "\x1F\x8B\7\0"s + rest, false},
        {"no magic", "\x1F\x8C\x08\0"s + rest, false},
    };
    for (const auto& [label, header, good] : rows) {
        SCOPED_TRACE(label);
        EXPECT_EQ(start_reading(header + body, true), good);
        EXPECT_EQ(stream.is_zipped(), good);
        EXPECT_EQ(read_all(stream), good ? "abc" : header + body) << "a plain stream at its beginning";
        if (!good) continue;
        EXPECT_TRUE(stream.seek(1, EFSSeek::BEGIN));
        EXPECT_EQ(read_all(stream), "bc");
        EXPECT_TRUE(stream.check_zip_crc());
    }
}

TEST_F(Gzip, NeverVouchesForWrongBytes) {
    const std::string plain = noise(3000, 1);
    const std::string whole = gzip_member_of(plain);
    char buffer[3001];
    std::string damaged = whole;
    damaged[damaged.size() - 8] ^= 1;
    ASSERT_TRUE(start_reading(damaged, true));
    EXPECT_EQ(stream.read(buffer, 3001), 3000u) << "the bytes come before the checksum";
    EXPECT_EQ(test::why(stream.read(buffer, 1)), EFSError::BAD_FORMAT);
    EXPECT_EQ(stream.tell(), UINT64_MAX);
    EXPECT_FALSE(stream.seek(0, EFSSeek::BEGIN)) << "until it is opened again";
    for (std::size_t at = 0; at < whole.size(); ++at) {
        SCOPED_TRACE(at);
        EXPECT_EQ(start_reading(whole.substr(0, at), true), at >= 10) << "cut off";
        if (at >= 10) EXPECT_TRUE(plain.starts_with(read_all(stream, 300)));
        EXPECT_FALSE(stream.check_zip_crc());
        damaged = whole;
        damaged[at] = static_cast<char>(~damaged[at]);
        if (start_reading(damaged, true)) EXPECT_TRUE(read_all(stream, 300) == plain || !stream.check_zip_crc());
    }
}

/// Reaches operations that are meant for derived classes.
struct OpenedUp : fs::vectorfile {
    std::uint64_t read_data(void* buffer, std::uint64_t size) override {
        return fails ? UINT64_MAX : vectorfile::read_data(buffer, size);
    }
    bool fails = false;
    using vectorfile::get_long;
    using vectorfile::tell_zipped;
    using vectorfile::use_zip;
    using vectorfile::zip_rewind;
};

TEST_F(Gzip, PartsAnswerWithoutAMemberAndBeginOneWhenItIsNeeded) {
    OpenedUp parts;
    parts.open_from_memory(EFSMode::READ, &bytes, false);
    EXPECT_TRUE(parts.zip_rewind() == -1 && parts.tell_zipped() == -1 && parts.get_long() == 0xFFFFFFFFu);
    parts.use_zip(true);
    EXPECT_EQ(parts.write("abc", 3), 3u);
    parts.close();
    EXPECT_EQ(written(), gzip_member_of("abc"));
    parts.fails = true;
    EXPECT_EQ(test::why(parts.open_from_memory(EFSMode::READ, &bytes, true)), EFSError::IO) << "no damage";
}

TEST(MemoryStream, DropsWhatDoesNotFitAndIsEmptyWithoutMemory) {
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

    char byte = 'x';
    stream.open_from_memory(EFSMode::READ, nullptr, 100, false);
    fs::vectorfile vector;
    vector.open_from_memory(EFSMode::WRITE, nullptr, false);
    for (fs::ifile* empty : {static_cast<fs::ifile*>(&stream), static_cast<fs::ifile*>(&vector)}) {
        EXPECT_TRUE(empty->read(&byte, 1) == 0 && empty->write(&byte, 1) == 0);
        EXPECT_TRUE(empty->seek(0, EFSSeek::END));
        EXPECT_FALSE(empty->seek(1, EFSSeek::BEGIN));
    }
    FileInMemory file(nullptr, 0);
    EXPECT_EQ(test::why(file.write(&byte, 1) != UINT64_MAX), EFSError::UNSUPPORTED);
    EXPECT_EQ(test::why(file.read(&byte, 1) != UINT64_MAX), EFSError::INVALID_ARGUMENT);
}

TEST(VectorFile, KeepsTheContentsAndGrows) {
    VectorStream vector;
    fs::vectorfile& stream = vector.stream;
    stream.write("ab", 2);
    stream.open_from_memory(EFSMode::WRITE, &vector.bytes, false);
    EXPECT_TRUE(stream.seek(10, EFSSeek::BEGIN));
    EXPECT_EQ(vector.written(), "ab" + std::string(8, '\0'));
    vector.bytes.resize(5);
    EXPECT_TRUE(stream.write("y", UINT64_MAX) == 0 && vector.bytes.size() == 5) << "all or nothing";
    EXPECT_EQ(stream.write("y", 1), 1u) << "also after the owner shortened the vector";
    EXPECT_EQ(vector.bytes.size(), 11u);
    EXPECT_FALSE(stream.set_current_pos(0x80000000ll));
    EXPECT_FALSE(stream.set_size(UINT64_MAX));
    EXPECT_EQ(stream.tell(), 11u);
}

}  // namespace

#include <gmock/gmock.h>

#include <algorithm>
#include <random>

#include <engine/filesystem/contract/error.h>
#include <engine/filesystem/streams/memory.h>

#include "recording_file.h"

using namespace std::string_literals;

namespace {

using Bytes = ztl::vector<unsigned char>;

const std::string header = "\x1F\x8B\x08\0\0\0\0\0\0\x0B"s;

std::string to_string(const Bytes& bytes) { return {bytes.begin(), bytes.end()}; }

Bytes member_of(const std::string& plain) {
    Bytes bytes;
    fs::vectorfile stream;
    stream.open_from_memory(EFSMode::WRITE, &bytes, true);
    EXPECT_EQ(stream.write(plain.data(), plain.size()), plain.size());
    stream.close();
    return bytes;
}

std::string read_all(fs::ifile& stream, std::size_t piece = 1000) {
    std::string plain;
    std::string buffer(piece, '\0');
    while (const std::uint64_t got = stream.read(buffer.data(), piece)) plain.append(buffer, 0, got);
    return plain;
}

/// Text that compresses, and stretches that do not.
std::string mixed_text(std::size_t size) {
    std::string text;
    for (std::uint32_t line = 0; text.size() < size; ++line) {
        text += "line " + std::to_string(line * 7919) + " of a text that repeats itself\n";
        if (line % 50 == 0) text += sample_bytes(300, line);
    }
    text.resize(size);
    return text;
}

struct GzipReader : testing::Test {
    void open(const std::string& from) {
        member.assign(from.begin(), from.end());
        opened = stream.open_from_memory(EFSMode::READ, &member, true);
    }
    Bytes member;
    fs::vectorfile stream;
    bool opened = false;
};

TEST(GzipWriter, WritesAHeaderRawDeflateAndATrailer) {
    const std::string member = to_string(member_of("abc"));
    EXPECT_EQ(member.substr(0, 10), header);
    EXPECT_EQ(member.substr(member.size() - 8), "\xC2\x41\x24\x35\x03\0\0\0"s);
    EXPECT_EQ(member.substr(10, member.size() - 18), "\x4B\x4C\x4A\x06\0"s);
    EXPECT_EQ(to_string(member_of("")), header + "\x03\0"s + std::string(8, '\0'));
}

TEST(GzipWriter, CountsPlainBytesAndSeeksForwardOnly) {
    Bytes bytes;
    fs::vectorfile stream;
    ASSERT_TRUE(stream.open_from_memory(EFSMode::WRITE, &bytes, true));
    EXPECT_TRUE(stream.is_zipped());
    EXPECT_EQ(stream.length_zipped(), 10u);
    stream.write("ab", 2);
    EXPECT_EQ(stream.tell(), 2u);
    EXPECT_TRUE(stream.seek(5000, EFSSeek::BEGIN));
    EXPECT_TRUE(stream.seek(3, EFSSeek::CURRENT));
    EXPECT_EQ(stream.tell(), 5003u);
    EXPECT_FALSE(stream.seek(5, EFSSeek::BEGIN));
    EXPECT_FALSE(stream.seek(-1, EFSSeek::CURRENT));
    EXPECT_FALSE(stream.seek(0, EFSSeek::END));
    char byte = 0;
    EXPECT_EQ(stream.read(&byte, 1), 0u) << "one direction for the life of a member";
    EXPECT_TRUE(stream.finish());
    const std::size_t size = bytes.size();
    EXPECT_TRUE(stream.finish());
    EXPECT_EQ(bytes.size(), size) << "the trailer is written once";
    EXPECT_EQ(stream.write("x", 1), 0u);
    stream.close();
    EXPECT_FALSE(stream.is_zipped());
    EXPECT_FALSE(stream.finish());

    stream.open_from_memory(EFSMode::READ, &bytes, true);
    EXPECT_EQ(read_all(stream), "ab" + std::string(5001, '\0'));
    stream.close();
    bytes.clear();
    ASSERT_TRUE(stream.open_from_memory(EFSMode::WRITE, &bytes, true)) << "the same object again";
    stream.write("abc", 3);
    stream.flush();
    stream.close();
    EXPECT_EQ(bytes, member_of("abc")) << "flush ends the data, close adds the trailer";
}

TEST(GzipWriter, NoticesAStorageThatIsFull) {
    const std::string plain = sample_bytes(200000);
    unsigned char block[6000];
    fs::memfile stream;
    ASSERT_TRUE(stream.open_from_memory(EFSMode::WRITE, block, sizeof(block), true));
    EXPECT_LT(stream.write(plain.data(), plain.size()), plain.size());
    EXPECT_EQ(stream.write("x", 1), 0u);
    EXPECT_EQ(stream.tell(), UINT64_MAX);
    fs::clear_error();
    EXPECT_TRUE(stream.finish()) << "whatever became of the trailer";
    EXPECT_EQ(fs::last_error().code, EFSError::DISK_FULL);
    fs::clear_error();
    stream.close();
    EXPECT_EQ(fs::last_error().code, EFSError::DISK_FULL);
    ASSERT_TRUE(stream.open_from_memory(EFSMode::READ, block, sizeof(block), true));
    EXPECT_FALSE(stream.check_zip_crc());
}

TEST_F(GzipReader, ReadsInPiecesOfAnySizeAndSeeksBothWays) {
    const std::string plain = mixed_text(500000);
    open(to_string(member_of(plain)));
    ASSERT_TRUE(opened);
    EXPECT_EQ(stream.length_zipped(), 4096u) << "raw bytes are fetched in blocks";
    for (const std::size_t piece : {std::size_t{1}, std::size_t{4096}, std::size_t{131072}, plain.size() + 1}) {
        EXPECT_EQ(read_all(stream, piece), plain) << piece;
        EXPECT_EQ(stream.tell(), plain.size());
        EXPECT_TRUE(stream.seek(0, EFSSeek::BEGIN));
    }
    for (const std::int64_t target : {400000, 10, 131072, 499999, 0, 500000}) {
        EXPECT_TRUE(stream.seek(target, EFSSeek::BEGIN)) << target;
        char byte = 0;
        const std::uint64_t got = stream.read(&byte, 1);
        EXPECT_EQ(std::string(&byte, got), plain.substr(static_cast<std::size_t>(target), 1));
    }
    EXPECT_FALSE(stream.seek(1, EFSSeek::CURRENT)) << "past the end";
    EXPECT_TRUE(stream.seek(-5, EFSSeek::CURRENT)) << "and back from there";
    EXPECT_EQ(read_all(stream), plain.substr(plain.size() - 5));
    EXPECT_FALSE(stream.seek(0, EFSSeek::END));
    EXPECT_FALSE(stream.seek(-1, EFSSeek::BEGIN));
    EXPECT_TRUE(stream.seek(77, EFSSeek::BEGIN));
    EXPECT_TRUE(stream.check_zip_crc());
    EXPECT_EQ(stream.tell(), 77u) << "checking comes back to where it was";
}

/// A storage of which nothing is known, so that it is read block by block.
struct BlockByBlock : fs::izipped_buffer_file {
    explicit BlockByBlock(const Bytes& bytes) : bytes_(bytes) {}
    std::uint64_t write_data(const void*, std::uint64_t) override { return 0; }
    std::uint64_t read_data(void* buffer, std::uint64_t size) override {
        const std::uint64_t there = std::min<std::uint64_t>(size, bytes_.size() - at_);
        std::copy_n(bytes_.begin() + static_cast<std::ptrdiff_t>(at_), there, static_cast<unsigned char*>(buffer));
        at_ += there;
        return there;
    }
    std::uint64_t get_size() override { return bytes_.size(); }
    bool set_size(std::uint64_t) override { return false; }
    std::uint64_t get_current_pos() override { return at_; }
    bool set_current_pos(std::int64_t position) override {
        at_ = static_cast<std::uint64_t>(position);
        return true;
    }

private:
    const Bytes& bytes_;
    std::uint64_t at_ = 0;
};

TEST_F(GzipReader, LeavesTheRawPositionAsIfItReadBlockByBlock) {
    const std::string packed = to_string(member_of(mixed_text(3000000)));
    std::string damaged = packed;
    damaged[packed.size() / 2] ^= 0x55;
    for (const std::string& raw :
         {packed + sample_bytes(100000), packed, packed.substr(0, packed.size() - 3), damaged}) {
        open(raw);
        BlockByBlock plain_way(member);
        ASSERT_TRUE(plain_way.init(EFSMode::READ, true));
        std::mt19937 random(5);
        for (int step = 0; step < 60; ++step) {
            std::string one(random() % (step % 3 == 0 ? 900000 : 40000), '\0');
            std::string other = one;
            if (step % 20 == 19) {
                EXPECT_EQ(stream.seek(1000, EFSSeek::BEGIN), plain_way.seek(1000, EFSSeek::BEGIN));
            }
            ASSERT_EQ(stream.read(one.data(), one.size()), plain_way.read(other.data(), other.size()));
            ASSERT_TRUE(one == other);
            ASSERT_EQ(stream.length_zipped(), plain_way.length_zipped()) << step;
            ASSERT_EQ(stream.tell(), plain_way.tell());
        }
        stream.close();
    }
}

TEST_F(GzipReader, PassesOverEveryHeaderField) {
    const std::string body = to_string(member_of("abc")).substr(10);
    struct Row {
        const char* label;
        std::string header;
        bool good;
    };
    const std::string start = "\x1F\x8B\x08"s;
    const std::string rest = "\1\2\3\4\5\6"s;
    const Row rows[] = {
        {"plain", start + "\0"s + rest, true},
        {"text flag", start + "\1"s + rest, true},
        {"name", start + "\x08" + rest + "n\xFFme\0"s, true},
        {"comment", start + "\x10" + rest + "comment\0"s, true},
        {"extra field with 255s", start + "\x04" + rest + "\4\0\xFF\xFF\0\1"s, true},
        {"header checksum", start + "\x02" + rest + "\xFF\xFF", true},
        {"all of them", start + "\x1F" + rest + "\1\0xname\0comment\0\xFF\0"s, true},
        {"reserved flag", start + "\x20" + rest, false},
        {"another method", "\x1F\x8B\7\0"s + rest, false},
        {"no magic", "\x1F\x8C\x08\0"s + rest, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        open(row.header + body);
        EXPECT_EQ(opened, row.good);
        EXPECT_EQ(stream.is_zipped(), row.good);
        if (!row.good) {
            EXPECT_EQ(stream.tell(), 0u) << "a plain stream at its beginning";
            EXPECT_EQ(read_all(stream), row.header + body);
            continue;
        }
        EXPECT_EQ(read_all(stream), "abc");
        EXPECT_TRUE(stream.seek(1, EFSSeek::BEGIN));
        EXPECT_EQ(read_all(stream), "bc");
        EXPECT_TRUE(stream.check_zip_crc());
        stream.close();
    }
}

TEST_F(GzipReader, StopsAtTheFirstMember) {
    fs::clear_error();
    open(to_string(member_of("abc")) + to_string(member_of("def")));
    EXPECT_EQ(read_all(stream), "abc");
    EXPECT_EQ(fs::last_error().code, EFSError::NONE);
    EXPECT_TRUE(stream.check_zip_crc());
}

TEST_F(GzipReader, GivesNothingAfterABadChecksumUntilItIsOpenedAgain) {
    std::string damaged = to_string(member_of("abc"));
    damaged[damaged.size() - 8] ^= 1;
    open(damaged);
    char buffer[8];
    EXPECT_EQ(stream.read(buffer, 8), 3u) << "the bytes come before the checksum";
    fs::clear_error();
    EXPECT_EQ(stream.read(buffer, 8), 0u);
    EXPECT_EQ(fs::last_error().code, EFSError::BAD_FORMAT) << "which the end of a good member never sets";
    EXPECT_EQ(stream.tell(), UINT64_MAX);
    EXPECT_FALSE(stream.seek(0, EFSSeek::BEGIN));
    EXPECT_FALSE(stream.check_zip_crc());
}

/// Reads to the end and says whether the stream vouches for what it gave.
bool reads_as_whole(fs::vectorfile& stream, std::string& plain) {
    plain = read_all(stream, 300);
    return stream.check_zip_crc();
}

TEST_F(GzipReader, NeverVouchesForATruncatedMember) {
    const std::string plain = mixed_text(3000);
    const std::string whole = to_string(member_of(plain));
    for (std::size_t cut = 0; cut < whole.size(); ++cut) {
        open(whole.substr(0, cut));
        EXPECT_EQ(opened, cut >= 10) << cut;
        if (!opened) continue;
        std::string read;
        EXPECT_FALSE(reads_as_whole(stream, read)) << cut;
        EXPECT_EQ(plain.compare(0, read.size(), read), 0) << cut;
        stream.close();
    }
}

TEST_F(GzipReader, NeverVouchesForWrongBytesOfADamagedMember) {
    const std::string plain = mixed_text(3000);
    const std::string whole = to_string(member_of(plain));
    for (std::size_t at = 0; at < whole.size(); ++at) {
        for (const int change : {0x01, 0x80, 0xFF}) {
            std::string damaged = whole;
            damaged[at] = static_cast<char>(damaged[at] ^ change);
            open(damaged);
            std::string read;
            EXPECT_TRUE(!opened || !reads_as_whole(stream, read) || read == plain) << at;
            stream.close();
        }
    }
}

/// Reaches the operations that are meant for derived classes.
struct OpenedUp : fs::vectorfile {
    using vectorfile::check_header;
    using vectorfile::destroy_zip_stream;
    using vectorfile::flush_zip_stream;
    using vectorfile::get_byte;
    using vectorfile::get_long;
    using vectorfile::seek_zipped;
    using vectorfile::tell_zipped;
    using vectorfile::use_zip;
    using vectorfile::zip_rewind;
};

TEST(GzipParts, AnswerWithoutAMember) {
    OpenedUp stream;
    Bytes bytes;
    stream.open_from_memory(EFSMode::READ, &bytes, false);
    EXPECT_EQ(stream.zip_rewind(), -1);
    EXPECT_EQ(stream.seek_zipped(0, EFSSeek::BEGIN), -1);
    EXPECT_EQ(stream.tell_zipped(), -1);
    EXPECT_EQ(stream.get_byte(), 255);
    EXPECT_EQ(stream.get_long(), 0xFFFFFFFFu);
    EXPECT_FALSE(stream.check_header());
    EXPECT_FALSE(stream.flush_zip_stream());
    EXPECT_FALSE(stream.destroy_zip_stream());
    EXPECT_FALSE(stream.init(EFSMode::APPEND, true));
    EXPECT_FALSE(stream.init(EFSMode::READ_WRITE, false));
    EXPECT_FALSE(stream.open("x", EFSMode::READ));
    EXPECT_EQ(stream.name(), nullptr);

    stream.use_zip(true);
    EXPECT_EQ(stream.length_zipped(), 0u);
    EXPECT_EQ(stream.write("abc", 3), 3u) << "the first write begins the member";
    stream.close();
    EXPECT_EQ(bytes, member_of("abc"));
    stream.seek(0, EFSSeek::BEGIN);
    stream.use_zip(true);
    EXPECT_EQ(read_all(stream), "abc");
    EXPECT_TRUE(stream.destroy_zip_stream());
}

}  // namespace

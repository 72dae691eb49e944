// Both decoders of deflate streams on what zlib makes (fuzz/inflate_fuzz.cpp holds them against it on any bytes), and
// what is made here: deflate streams by copying and zstd's frames.
#include <algorithm>

#include "engine/filesystem/formats/deflate.h"
#include "engine/filesystem/formats/zstd.h"
#include "tests/sources/pack/fixture.h"

namespace {

using fs::Decoder;
using fs::InflateEngine;

struct Decoded {
    std::string bytes;
    std::size_t left = 0;  // input behind the stream's end
    Decoder::Result result = Decoder::Result::MORE;
};

/// In pieces of input and output; now and then the rest is left to another decoder, from a checkpoint.
Decoded in_pieces(InflateEngine engine, const std::string& packed, std::size_t in_piece, std::size_t out_piece) {
    Decoded decoded;
    auto decoder = fs::make_inflater(engine);
    EXPECT_TRUE(decoder->start());
    const auto* next = reinterpret_cast<const std::uint8_t*>(packed.data());
    const auto* const end = next + packed.size();
    std::vector<std::uint8_t> out(out_piece);
    for (int step = 1; decoded.result == Decoder::Result::MORE; ++step) {
        const std::size_t piece = std::min(in_piece, static_cast<std::size_t>(end - next));
        fs::DecoderBuffers buffers{.in = next, .in_size = piece, .out = out.data(), .out_size = out.size()};
        decoded.result = decoder->decode(buffers);
        const std::size_t made = out.size() - buffers.out_size;
        decoded.bytes.append(reinterpret_cast<const char*>(out.data()), made);
        if (made == 0 && buffers.in == next && piece == static_cast<std::size_t>(end - next)) break;
        next = buffers.in;
        if (step % (step < 700 ? 7 : 997) != 0 || decoded.result != Decoder::Result::MORE) continue;
        const auto checkpoint = decoder->save();
        if (!checkpoint) continue;
        EXPECT_LT(checkpoint->bytes(), 72u << 10);
        decoder = fs::make_inflater(engine);
        EXPECT_TRUE(decoder->start() && decoder->restore(*checkpoint));
    }
    decoded.left = static_cast<std::size_t>(end - next);
    return decoded;
}

class Inflate : public testing::TestWithParam<InflateEngine> {
protected:
    void SetUp() override {
        if (!fs::has_inflate_engine(GetParam())) GTEST_SKIP() << "built without it";
    }
};

// A block header that two pieces of input share, while output waits, used to come apart.
TEST_P(Inflate, GivesTheBytesOfZlibInAnyPiecesUntilTheStreamsEndOrItsDamage) {
    const std::string plain = noise(3 << 20, 3) + std::string(100000, 'r');
    for (const auto& [in_piece, out_piece] : {std::pair(1, 100), {16384, 32768}, {100000, 4096}, {7, 70000}}) {
        for (const int level : {0, 1, 6}) {
            const std::string packed = deflated(plain, level) + "trailer!";
            const Decoded decoded =
                in_pieces(GetParam(), packed, static_cast<std::size_t>(in_piece), static_cast<std::size_t>(out_piece));
            SCOPED_TRACE(testing::Message() << level << " " << in_piece << " " << out_piece);
            ASSERT_EQ(decoded.result, Decoder::Result::END);
            ASSERT_TRUE(decoded.bytes == plain);
            ASSERT_EQ(decoded.left, 8u);
        }
    }
    const auto copied = fs::deflate_by_copying(plain.data(), plain.size());
    std::string packed(copied.begin(), copied.end());
    packed[5 + 0xFFFF + 1] ^= 1;  // the length of the second block
    const Decoded damaged = in_pieces(GetParam(), packed, 16384, 32768);
    EXPECT_TRUE(damaged.result == Decoder::Result::DAMAGED && damaged.bytes == plain.substr(0, 0xFFFF));
}

INSTANTIATE_TEST_SUITE_P(Engines, Inflate, testing::Values(InflateEngine::ZLIB, InflateEngine::ISAL),
                         [](const auto& row) { return row.param == InflateEngine::ZLIB ? "zlib" : "isal"; });

TEST(Zstd, WritesFramesOfAMebibyteWithATableThatFindsThem) {
    if (!fs::has_zstd()) GTEST_SKIP() << "built without it";
    const auto compressor = fs::make_zstd_compressor();
    const std::string plain = noise((5 << 19) + 77, 1);
    const auto packed = compressor->compress(plain.data(), plain.size(), 3, plain.size());
    std::string out(plain.size(), '!');
    ASSERT_TRUE(fs::make_buffer_zstd_decoder()->decode(packed.data(), packed.size(), out.data(), out.size()));
    EXPECT_TRUE(out == plain);

    const std::uint8_t* const end = packed.data() + packed.size();
    const std::uint64_t table_size = fs::ZstdSeekTable::size_by_footer(end - fs::ZstdSeekTable::footer_size);
    ASSERT_EQ(table_size, 8u + 3 * 8 + 9);
    fs::ZstdSeekTable table;
    ASSERT_TRUE(table.read(end - table_size, table_size, packed.size(), plain.size()));
    EXPECT_TRUE(table.starts.size() == 3 && table.frame_size == 1u << 20);
    for (const std::size_t wrong : {0u, 1u})
        EXPECT_FALSE(table.read(end - table_size, table_size, packed.size() + wrong, plain.size() - 1 + wrong));
    EXPECT_TRUE(table.starts.empty());
    EXPECT_TRUE(compressor->compress(packed.data(), packed.size(), 3, packed.size()).empty()) << "not smaller";
    const auto one_frame = compressor->compress(plain.data(), 1000, 19, 1000);
    EXPECT_EQ(fs::ZstdSeekTable::size_by_footer(one_frame.data() + one_frame.size() - 9), 0u);
}

}  // namespace

// Both decoders of deflate streams on what zlib makes (fuzz/inflate_fuzz.cpp holds them against it on any bytes), and
// what is made here: deflate streams by copying and zstd's frames.
#include <algorithm>

#include "engine/filesystem/formats/deflate.h"
#include "engine/filesystem/formats/inflate.h"
#include "engine/filesystem/formats/zstd.h"
#include "tests/sources/pack/fixture.h"

namespace {

using fs::Decoder;
using fs::InflateEngine;

/// Random bytes, half random ones, runs, or words.
std::string sample(std::uint32_t seed) {
    std::mt19937 random(seed);
    const std::size_t size = random() % 150000;
    if (seed % 4 == 1) return noise(size, seed);
    std::string out;
    while (out.size() < size) {
        if (seed % 4 == 0) out += static_cast<char>(random());
        if (seed % 4 == 2) out.append(random() % 500, static_cast<char>(random() % 3));
        if (seed % 4 == 3) out += std::to_string(random() % 1000) + " word ";
    }
    return out;
}

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
TEST_P(Inflate, GivesTheBytesOfZlibUntilTheStreamsEndOrItsDamage) {
    const std::size_t pieces[][2] = {{1, 100}, {16384, 32768}, {100000, 4096}, {7, 70000}, {300, 1}};
    for (std::uint32_t seed = 0; seed < 40; ++seed) {
        const std::string plain = seed == 0 ? noise(3 << 20, 3) : sample(seed);
        const std::string packed = deflated(plain, static_cast<int>(seed % 10));
        for (const auto& [in_piece, out_piece] : pieces) {
            if (plain.size() > (out_piece == 1 ? 20000u : in_piece == 16384 ? 4u << 20 : 200000u)) continue;
            const Decoded decoded = in_pieces(GetParam(), packed + "trailer!", in_piece, out_piece);
            SCOPED_TRACE(testing::Message() << seed << " " << in_piece << " " << out_piece);
            ASSERT_EQ(decoded.result, Decoder::Result::END);
            ASSERT_TRUE(decoded.bytes == plain);
            ASSERT_EQ(decoded.left, 8u);
        }
    }
    const std::string plain = noise(3 << 20, 3);
    const auto copied = fs::deflate_by_copying(plain.data(), plain.size());
    std::string packed(copied.begin(), copied.end());
    packed[5 + 0xFFFF + 1] ^= 1;  // the length of the second block
    const Decoded damaged = in_pieces(GetParam(), packed, 16384, 32768);
    EXPECT_TRUE(damaged.result == Decoder::Result::DAMAGED && damaged.bytes == plain.substr(0, 0xFFFF));
}

INSTANTIATE_TEST_SUITE_P(Engines, Inflate, testing::Values(InflateEngine::ZLIB, InflateEngine::ISAL),
                         [](const auto& row) { return row.param == InflateEngine::ZLIB ? "zlib" : "isal"; });

TEST(Deflate, CopyingMakesStreamsOfTheLengthThatItTells) {
    for (const std::size_t size : {0u, 1u, 65535u, 65536u, 200000u}) {
        const std::string plain = noise(size, 1);
        const auto made = fs::deflate_by_copying(plain.data(), size);
        std::string out(size, '!');
        EXPECT_EQ(made.size(), fs::size_deflated_by_copying(size));
        EXPECT_TRUE(fs::make_buffer_inflater()->decode(made.data(), made.size(), out.data(), size) && out == plain);
    }
}

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
    const std::string random = sample(0);
    EXPECT_TRUE(compressor->compress(random.data(), random.size(), 3, random.size()).empty()) << "not smaller";
    const auto one_frame = compressor->compress(plain.data(), 1000, 19, 1000);
    EXPECT_EQ(fs::ZstdSeekTable::size_by_footer(one_frame.data() + one_frame.size() - 9), 0u);
}

}  // namespace

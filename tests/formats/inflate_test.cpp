#include "engine/filesystem/formats/zstd.h"
#include "tests/sources/pack/fixture.h"

namespace {

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

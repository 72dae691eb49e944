#include "../log/log_fixture.h"
#include "engine/filesystem/log/sinks.h"
#include "kit.h"

using namespace std::string_literals;

namespace {

constexpr unsigned data_id = 0x64617461;  // "data"
constexpr unsigned tree_id = 0x54524545;  // "TREE"

struct Chunks : LogTest, VectorStream {};

TEST_F(Chunks, NestAndKnowTheirSize) {
    {
        fs::chunk_save outer(stream, tree_id, 1);
        fs::chunk_save inner(stream, data_id, 3);
        stream.write("12345", 5);
    }
    { fs::chunk_save empty(stream, data_id, 3); }
    EXPECT_EQ(written(),
              "TREE\1\0\0\0\x11\0\0\0data\3\0\0\0\5\0\0\0"
              "12345data\3\0\0\0\0\0\0\0"s);
    EXPECT_EQ(stream.tell(), 41u);

    stream.seek(0, EFSSeek::BEGIN);
    {
        fs::chunk_load outer(stream);
        EXPECT_TRUE(outer.match(tree_id, 1, "test"));
        EXPECT_FALSE(outer.is_data_chunk());
        EXPECT_EQ(outer.size, 17u);
        fs::chunk_load inner(stream);
        EXPECT_TRUE(inner.is_data_chunk());
        EXPECT_EQ(inner.version, 3u);
    }
    EXPECT_EQ(stream.tell(), 29u) << "behind the chunk, however little of it was read";
    { fs::chunk_load(stream).rewind(); }
    EXPECT_EQ(stream.tell(), 29u);
}

TEST_F(Chunks, ReportAMismatchWithTheVersionAskedFor) {
    start_reading("data\3\0\0\0\0\0\0\0"s);
    fs::chunk_load chunk(stream);
    const std::uint32_t errors = logging::state.errors;
    _CLFilterSetMode(CLFilterMode::ALL_NOWHERE);
    EXPECT_FALSE(chunk.match(data_id, 4, nullptr) || chunk.match(data_id, 4, "silent"));
    _CLFilterSetMode(CLFilterMode::ALL_CONSOLE);
    EXPECT_FALSE(chunk.match(tree_id, 9, "loader"));
    EXPECT_EQ(logging::state.errors, errors + 2) << "a silenced message counts too";
    ASSERT_EQ(console_lines.size(), 1u);
    EXPECT_THAT(console_lines[0].text, testing::HasSubstr("loader Unknown data chunk data_9\r\n"));
}

TEST_F(Chunks, LeaveTheDataAloneWhereTheStreamCannotGoBack) {
    stream.open_from_memory(EFSMode::WRITE, &bytes, true);
    fs::chunk_save(stream, data_id, 1);
    stream.write("abc", 3);
    stream.close();
    stream.open_from_memory(EFSMode::READ, &bytes, true);
    EXPECT_EQ(read_all(stream), "data\1\0\0\0\0\0\0\0"s + "abc");
}

}  // namespace

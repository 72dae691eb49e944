// Typed values, chunks and messages by streams.
#include <cstdlib>

#include "kit.h"
#include "tests/log/log_fixture.h"

using namespace std::string_literals;

namespace {

struct TypedStream : testing::Test, VectorStream {};

TEST_F(TypedStream, EncodesNumbersLeastSignificantByteFirst) {
    stream << true << false;
    stream.put_int(-2);
    stream.put_uint(0x12345678u);
    stream.put_float(1.5f);
    const std::string expected = "\x01\x00\xFE\xFF\xFF\xFF\x78\x56\x34\x12\x00\x00\xC0\x3F"s;
    EXPECT_EQ(written(), expected);

    start_reading("\x02\x00"s + expected.substr(2));
    bool first = false;
    bool second = true;
    stream >> first >> second;
    EXPECT_TRUE(first && !second) << "any byte but 0 is true";
    EXPECT_EQ(stream.get_int(), -2);
    EXPECT_EQ(stream.get_uint(), 0x12345678u);
    EXPECT_EQ(stream.get_float(), 1.5f);
    stream >> first;
    EXPECT_TRUE(first) << "what is not there leaves the value";
    EXPECT_EQ(stream.get_uint(), 0u) << "or reads as 0";
}

TEST_F(TypedStream, EncodesTextsWithA16BitLength) {
    char text[] = "ab";
    std::string owned = "cd";
    stream << static_cast<const char*>(nullptr) << text << owned << "";
    stream << std::string(65537, 'x') << std::string(65536, 'y');
    EXPECT_EQ(written(), "\0\0\2\0ab\2\0cd\0\0\1\0x\0\0"s);
}

TEST_F(TypedStream, EncodesWideTextsAs16BitUnits) {
    wchar_t text[] = L"a\x20AC";
    const std::wstring beyond = L"x\U0001F600y";
    stream << text << static_cast<const wchar_t*>(nullptr) << std::wstring(L"\xD83D") << beyond;
    const std::string expected = "\2\0a\0\xAC\x20\0\0\1\0\x3D\xD8\4\0x\0\x3D\xD8\0\xDEy\0"s;
    EXPECT_EQ(written(), expected);

    start_reading(expected);
    std::wstring first = L"old";
    wchar_t* second = nullptr;
    const wchar_t* third = nullptr;
    wchar_t fourth[8];
    stream >> first >> &second >> &third >> fourth;
    EXPECT_EQ(first, text);
    EXPECT_EQ(second, nullptr);
    EXPECT_EQ(third, std::wstring(L"\xD83D")) << "half of a pair passes as it is";
    EXPECT_EQ(fourth, beyond);
    std::free(const_cast<wchar_t*>(third));
}

#if WCHAR_MAX > 0xFFFF
TEST_F(TypedStream, CutsAndJoinsWideTextsByUnitsNotCharacters) {
    const std::wstring pairs(32769, static_cast<wchar_t>(0x10FFFF));  // 65538 units, of which 2 remain
    stream << pairs << std::wstring(1, static_cast<wchar_t>(0x110000));
    EXPECT_EQ(written(), "\2\0\xFF\xDB\xFF\xDF\1\0\xFD\xFF"s);

    std::wstring again;
    stream << L"x" + std::wstring(1000, static_cast<wchar_t>(0x1F600));
    stream.seek(10, EFSSeek::BEGIN);
    stream >> again;
    EXPECT_EQ(again, L"x" + std::wstring(1000, static_cast<wchar_t>(0x1F600))) << "where a pair lies across two pieces";
}
#endif

TEST_F(TypedStream, ReadsTextsIntoEveryKindOfDestination) {
    start_reading("\2\0ab\0\0\3\0cde\0\0\1\0f\2\0gh\5\0ij"s);
    char buffer[8] = "xxxxxxx";
    char* none = static_cast<char*>(std::malloc(4));
    const char* some = nullptr;
    std::string text = "old";
    stream >> buffer >> &none >> &some >> text;
    EXPECT_STREQ(buffer, "ab");
    EXPECT_EQ(none, nullptr) << "the old block is freed, an empty text is null";
    EXPECT_STREQ(some, "cde");
    EXPECT_EQ(text, "");
    std::free(const_cast<char*>(some));
    stream >> static_cast<char*>(nullptr) >> text >> buffer;
    EXPECT_EQ(text, "gh") << "a null destination skips the text";
    EXPECT_EQ(std::string(buffer, 8), "ij\0xx\0x\0"s) << "what is not there stays as it was";
    stream >> text;
    EXPECT_EQ(text, "");
}

TEST_F(TypedStream, AppendsToAVectorAndEndsWithTheStream) {
    std::vector<std::string> large(3000, std::string(20, 'z'));
    large[0] = "a";
    large[1500] = std::string(9000, 'q');  // gathered for writing up to here
    stream << large;
    const std::pair<std::string, std::vector<std::string>> rows[] = {
        {"\2\0\0\0\1\0b\0\0"s, {"a", "b", ""}},
        {written().replace(4, 3, ""), large},
        {"\xFF\xFF\xFF\xFF\1\0x\1"s, {"a", "x"}},
        {"\xFF\xFF\xFF\x7F\1\0x"s, {"a", "x"}},
    };
    for (const auto& [encoded, texts] : rows) {
        start_reading(encoded);
        std::vector<std::string> read = {"a"};
        stream >> read;
        EXPECT_EQ(read, texts);
    }
}

TEST_F(TypedStream, PrintsWhatTheFormatterMakes) {
    EXPECT_EQ(stream.printf("%d-%s|", 42, "x"), 5);
    EXPECT_EQ(stream.printf("%255d%256d", 7, 7), 511);
    EXPECT_EQ(stream.printf(static_cast<const char*>(nullptr)), 0);
    EXPECT_EQ(stream.printf("100%% sure"s), 9) << "a string is its own format";
    for (const char* needy : {"%d", "x%", "%5%"}) EXPECT_EQ(stream.printf(std::string(needy)), -1);
    EXPECT_EQ(written(), "42-x|" + std::string(254, ' ') + "7" + std::string(255, ' ') + "7100% sure");
}

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

struct DebugOutput : LogTest {};

TEST_F(DebugOutput, TurnsEachWriteIntoOneMessageOfItsLevel) {
    const std::string text = std::string(60000, 'x') + "100%d";
    _CLFilterSetMode(CLFilterMode::ALL_CONSOLE);
    fs::file_dbgoutput stream("other");
    for (const auto& [level, category] : {std::pair(Log::ELevel::DEBG, "cat"), {Log::ELevel::ERRR, nullptr}}) {
        stream.set_level_category(level, category);
        for (const auto setting : {Log::ELevel::DEBG, Log::ELevel::INFO}) {
            Log::Settings::Instance().SetLevel(setting);
            EXPECT_EQ(stream.write((text + "not this").c_str(), text.size()), text.size());
        }
    }
    using testing::FieldsAre;
    EXPECT_THAT(console_lines, testing::ElementsAre(FieldsAre(Log::ELevel::DEBG, "cat", testing::EndsWith(text)),
                                                    FieldsAre(Log::ELevel::ERRR, "", testing::EndsWith(text)),
                                                    FieldsAre(Log::ELevel::ERRR, "", testing::EndsWith(text))));
}

}  // namespace

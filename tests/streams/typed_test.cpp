#include <gmock/gmock.h>

#include <cstdlib>

#include <engine/filesystem/streams/memory.h>

using testing::ElementsAre;
using namespace std::string_literals;

namespace {

template <class T>
concept Writable = requires(fs::ifile& stream, T value) {
    stream << value;
};

static_assert(Writable<bool> && Writable<const char*> && Writable<char*> && Writable<const wchar_t*> &&
              Writable<wchar_t*> && Writable<std::string> && Writable<const std::string> && Writable<std::wstring> &&
              Writable<const std::wstring> && Writable<const std::vector<std::string>> &&
              Writable<std::vector<std::string>>);
static_assert(!Writable<int> && !Writable<unsigned> && !Writable<char> && !Writable<float> && !Writable<double> &&
              !Writable<std::int64_t> && !Writable<void*> && !Writable<int*> && !Writable<std::nullptr_t> &&
              !Writable<std::vector<std::wstring>> && !Writable<EFSMode::TYPE> && !Writable<char16_t*>);

/// A vector stream that is written and then read from its beginning.
struct TypedStream : testing::Test {
    TypedStream() { stream.open_from_memory(EFSMode::WRITE, &bytes, false); }
    std::string written() const { return {bytes.begin(), bytes.end()}; }
    void start_reading(const std::string& from) {
        bytes.assign(from.begin(), from.end());
        stream.open_from_memory(EFSMode::READ, &bytes, false);
    }
    ztl::vector<unsigned char> bytes;
    fs::vectorfile stream;
};

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
    EXPECT_EQ(stream.get_uint(), 0u) << "what is not there reads as 0";
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
    stream << text << static_cast<const wchar_t*>(nullptr) << std::wstring(L"\xD83D");
#if WCHAR_MAX > 0xFFFF
    const std::wstring beyond = {L'x', static_cast<wchar_t>(0x1F600), L'y'};
#else
    const std::wstring beyond = L"x\xD83D\xDE00y";
#endif
    stream << beyond;
    const std::string expected =
        "\2\0a\0\xAC\x20\0\0\1\0\x3D\xD8\4\0x\0\x3D\xD8\0\xDE"
        "y\0"s;
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

    const std::wstring many(1000, static_cast<wchar_t>(0x1F600));
    start_reading("");
    stream << L"x" << many;
    stream.seek(0, EFSSeek::BEGIN);
    std::wstring first, again;
    stream >> first >> again;
    EXPECT_EQ(again, many) << "also where a pair lies across two pieces";
}
#endif

TEST_F(TypedStream, ReadsTextsIntoEveryKindOfDestination) {
    start_reading("\2\0ab\0\0\3\0cde\0\0\1\0f\2\0gh"s);
    char buffer[8] = "xxxxxxx";
    char* none = static_cast<char*>(std::malloc(4));
    const char* some = nullptr;
    std::string emptied = "old";
    stream >> buffer >> &none >> &some >> emptied;
    EXPECT_STREQ(buffer, "ab");
    EXPECT_EQ(none, nullptr) << "the old block is freed, an empty text is null";
    EXPECT_STREQ(some, "cde");
    EXPECT_EQ(emptied, "");
    std::free(const_cast<char*>(some));
    stream >> static_cast<char*>(nullptr) >> emptied;
    EXPECT_EQ(emptied, "gh") << "a null destination skips the text";
}

TEST_F(TypedStream, AppendsToAVectorAndEndsWithTheStream) {
    const std::vector<std::string> two = {"b", ""};
    stream << two;
    EXPECT_EQ(written(), "\2\0\0\0\1\0b\0\0"s);
    start_reading(written());
    std::vector<std::string> texts = {"a"};
    stream >> texts;
    EXPECT_THAT(texts, ElementsAre("a", "b", ""));

    for (const std::string& absurd : {"\xFF\xFF\xFF\xFF"s + "\1\0x\1"s, "\xFF\xFF\xFF\x7F\1\0x"s}) {
        start_reading(absurd);
        std::vector<std::string> read;
        stream >> read;
        EXPECT_THAT(read, ElementsAre("x"));
    }
    std::vector<std::string> large(3000, std::string(20, 'z'));
    large[1500] = std::string(9000, 'q');
    start_reading("");
    stream << large;
    start_reading(written());
    std::vector<std::string> read;
    stream >> read;
    EXPECT_EQ(read, large) << "the pieces that are gathered for writing keep their order";
}

TEST_F(TypedStream, LeavesWhatAShortStreamDoesNotHold) {
    start_reading("\5\0ab"s);
    char buffer[8] = "ABCDEFG";
    stream >> buffer;
    EXPECT_EQ(std::string(buffer, 7), "abCDE\0G"s);
    start_reading("\5\0a"s);
    std::string text;
    stream >> text;
    EXPECT_EQ(text, "a\0\0\0\0"s);
    start_reading("");
    bool value = true;
    std::string missing = "old";
    stream >> value >> missing;
    EXPECT_TRUE(value);
    EXPECT_EQ(missing, "");
}

TEST_F(TypedStream, PrintsWhatTheFormatterMakes) {
    const std::string longer(700, 'w');
    EXPECT_EQ(stream.printf("%d-%s|", 42, "x"), 5);
    EXPECT_EQ(stream.printf("%s", longer.c_str()), 700);
    EXPECT_EQ(stream.printf("%255d", 7), 255);
    EXPECT_EQ(stream.printf("%256d", 7), 256);
    EXPECT_EQ(stream.printf(static_cast<const char*>(nullptr)), 0);
    EXPECT_EQ(written(), "42-x|" + longer + std::string(254, ' ') + "7" + std::string(255, ' ') + "7");
}

TEST_F(TypedStream, TakesAStringAsItsOwnFormat) {
    EXPECT_EQ(stream.printf("100%% sure"s), 9);
    for (const char* needy : {"%d", "50% off", "x%", "%s", "%5%", "%n"})
        EXPECT_EQ(stream.printf(std::string(needy)), -1);
    EXPECT_EQ(written(), "100% sure");
}

}  // namespace

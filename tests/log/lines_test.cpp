#include <gmock/gmock.h>

#include <algorithm>
#include <cctype>
#include <cstdarg>

#include "engine/filesystem/log/line_writer.h"
#include "engine/kernel/format.h"
#include "tests/log/log_fixture.h"

namespace {

using Log::ELevel;
constexpr auto NEW_LINE = CLLineMode::NEW_LINE;
constexpr auto CONTINUE = CLLineMode::CONTINUE;
constexpr auto CONTINUATION_LINE = CLLineMode::CONTINUATION_LINE;

class LogLines : public LogTest {};

TEST_F(LogLines, HeaderHasTimeLevelAndCategory) {
    const std::string text = write(ELevel::INFO, "FileSystem", NEW_LINE, "hello\n");
    EXPECT_THAT(text, testing::MatchesRegex("\\{..:..:..\\....\\} INFO: \\[FileSystem\\] > hello\r\n"));
    for (const std::size_t at : {1u, 2u, 4u, 5u, 7u, 8u, 10u, 11u, 12u}) EXPECT_TRUE(isdigit(text[at])) << text;
}

TEST_F(LogLines, SequencesOfMessagesShareLinesAsTheirModesSay) {
    struct Step {
        ELevel::TYPE level;
        const char* category;
        CLLineMode::ENUM mode;
        const char* text;
        const char* expected;
    };
    struct Case {
        const char* label;
        std::vector<Step> steps;
    };
    const Case cases[] = {
        {"mode 1 continues an open line",
         {{ELevel::INFO, "a", NEW_LINE, "one", "INFO: [a] > one"},
          {ELevel::INFO, "a", CONTINUE, " two\n", " two\r\n"}}},
        {"another category closes it",
         {{ELevel::INFO, "a", NEW_LINE, "one", "INFO: [a] > one"},
          {ELevel::INFO, "b", CONTINUE, "two\n", "\r\nINFO: [b] > two\r\n"}}},
        {"another level closes it",
         {{ELevel::INFO, "a", NEW_LINE, "one", "INFO: [a] > one"},
          {ELevel::WARN, "a", CONTINUATION_LINE, "two\n", "\r\nWARN: [a] > two\r\n"}}},
        {"mode 0 closes it",
         {{ELevel::INFO, "a", NEW_LINE, "one", "INFO: [a] > one"},
          {ELevel::INFO, "a", NEW_LINE, "two", "\r\nINFO: [a] > two"}}},
        {"mode 1 without an open line starts one",
         {{ELevel::INFO, "a", NEW_LINE, "one\n", "INFO: [a] > one\r\n"},
          {ELevel::INFO, "a", CONTINUE, "two\n", "INFO: [a] > two\r\n"}}},
        {"mode 2 starts a continuation line, and goes on with an open one",
         {{ELevel::INFO, "a", NEW_LINE, "one\n", "INFO: [a] > one\r\n"},
          {ELevel::INFO, "a", CONTINUATION_LINE, "two", "INFO: [a] | two"},
          {ELevel::INFO, "a", CONTINUATION_LINE, "three\n", "three\r\n"}}},
        {"further lines of a message are marked",
         {{ELevel::INFO, "a", NEW_LINE, "one\ntwo\n", "INFO: [a] > one\r\nINFO: [a] | two\r\n"}}},
        {"an empty line is a line", {{ELevel::INFO, "a", NEW_LINE, "\n\n", "INFO: [a] > \r\nINFO: [a] | \r\n"}}},
        {"a return before a newline is not doubled",
         {{ELevel::INFO, "a", NEW_LINE, "one\r\ntwo\r\r\n", "INFO: [a] > one\r\nINFO: [a] | two\r\r\n"}}},
        {"an empty message only closes the line",
         {{ELevel::INFO, "a", NEW_LINE, "one", "INFO: [a] > one"},
          {ELevel::INFO, "a", NEW_LINE, "", "\r\n"},
          {ELevel::INFO, "a", NEW_LINE, "", ""}}},
        {"categories are compared over 16 bytes",
         {{ELevel::INFO, "0123456789abcdefX", NEW_LINE, "one", "INFO: [0123456789abcdef] > one"},
          {ELevel::INFO, "0123456789abcdefY", CONTINUE, "two", "two"}}},
        {"what is no letter of a label becomes an underscore",
         {{ELevel::INFO, "my cat!", NEW_LINE, "x", "INFO: [my_cat_] > x"},
          {ELevel::INFO, "a.b_C9\xE4", NEW_LINE, "x", "\r\nINFO: [a.b_C9_] > x"}}},
        {"an unknown level has no tag", {{static_cast<ELevel::TYPE>(77), "a", NEW_LINE, "x", ": [a] > x"}}},
    };
    for (const Case& row : cases) {
        logging::state.line_open = false;
        for (const Step& step : row.steps) {
            logging::state.widest_header = 0;
            EXPECT_EQ(without_time(write(step.level, step.category, step.mode, step.text)), step.expected) << row.label;
        }
    }
}

TEST_F(LogLines, ShorterHeadersArePaddedToTheWidest) {
    EXPECT_EQ(without_time(write(ELevel::INFO, "longer", NEW_LINE, "x\n")), "INFO: [longer] > x\r\n");
    EXPECT_EQ(without_time(write(ELevel::INFO, "a", NEW_LINE, "x\n")), "INFO: [a]      > x\r\n");
    EXPECT_EQ(without_time(write(ELevel::INFO, "longest", NEW_LINE, "x\n")), "INFO: [longest] > x\r\n");
}

TEST_F(LogLines, PositionStandsFirstWhenAskedForAndKnownAndIsCutBeforeTheText) {
    Log::Settings::Instance().SetMessageSource(true);
    _CLog(ELevel::INFO, "a", "some/file", -12, CLFilterAction::CONSOLE, NEW_LINE, "x%d\n", 1);
    EXPECT_EQ(without_time(console_lines.back().text), ">some/file(-12): INFO: [a] > x1\r\n");
    EXPECT_EQ(without_time(write(ELevel::INFO, "a", NEW_LINE, "y\n")), "INFO: [a]                  > y\r\n");
    const std::string longest(100'000, 'f');
    _CLog(ELevel::INFO, "a", longest.c_str(), 7, CLFilterAction::CONSOLE, NEW_LINE, "text\n");
    EXPECT_LT(console_lines.back().text.size(), 1200u);
    EXPECT_THAT(console_lines.back().text, testing::EndsWith("INFO: [a] > text\r\n"));
}

TEST_F(LogLines, OutputStopsBeforeItsLimit) {
    // Whatever the lines are like, the same rule holds: a character is copied while fewer than 65536 - (header + 4) are
    // written, and the message itself holds at most 65535.
    const std::size_t header = std::string("{00:00:00.000} INFO: [a] ").size();
    const std::size_t limit = 65536 - (header + 4);
    EXPECT_EQ(write(ELevel::INFO, "a", NEW_LINE, std::string(70'000, 'x')).size(), limit);

    std::string lines;
    for (int i = 0; i < 20'000; ++i) lines += "y\n";
    logging::state.line_open = false;
    const std::string text = write(ELevel::INFO, "a", NEW_LINE, lines);
    const std::size_t per_line = header + 2 + 3;
    ASSERT_LT(limit % per_line, header) << "the limit falls into a header, behind which one character still follows";
    EXPECT_EQ(text.size(), limit / per_line * per_line + header + 3);
    EXPECT_LT(text.size(), 65536u);
}

TEST_F(LogLines, AWiderHeaderBehindAFullOpenLineStaysInTheBuffer) {
    Log::Settings::Instance().SetMessageSource(true);
    write(ELevel::INFO, "a", NEW_LINE, "");
    const std::string file(2000, 'f');
    const std::string text = std::string(65'480, 'x') + "\n" + std::string(50, 'y');
    _CLog(ELevel::INFO, "a", nullptr, 0, CLFilterAction::CONSOLE, NEW_LINE, "open");
    _CLog(ELevel::INFO, "a", file.c_str(), 1, CLFilterAction::CONSOLE, CONTINUE, "%s", text.c_str());
    EXPECT_EQ(console_lines.back().text.substr(0, 65'482), std::string(65'480, 'x') + "\r\n");
    EXPECT_TRUE(console_lines.back().text.ends_with("| y"));
}

TEST_F(LogLines, LongAndShortMessagesAreLaidOutAlike) {
    for (const std::size_t length : {1022u, 1023u, 1024u, 1025u, 5000u}) {
        logging::state.line_open = false;
        const std::string body(length, 'x');
        EXPECT_EQ(without_time(write(ELevel::INFO, "a", NEW_LINE, body + "\n")), "INFO: [a] > " + body + "\r\n");
    }
    logging::state.line_open = false;
    const std::string many_lines = write(ELevel::INFO, "a", NEW_LINE, std::string(300, '\n'));
    EXPECT_EQ(std::count(many_lines.begin(), many_lines.end(), '\n'), 300);
}

TEST_F(LogLines, ActionDecidesWhichCallbackHears) {
    for (const std::uint32_t action : {0u, 1u, 2u, 3u}) {
        console_lines.clear();
        file_lines.clear();
        _CLog(ELevel::ERRR, "a b", nullptr, 0, static_cast<CLFilterAction::ENUM>(action), NEW_LINE, "x\n");
        EXPECT_EQ(console_lines.size(), action & 1u);
        EXPECT_EQ(file_lines.size(), action >> 1u);
        for (const Line& line : file_lines) EXPECT_EQ(line.category, "a b") << "the category comes as given";
    }
}

TEST_F(LogLines, NullCategoryAndFormatAreEmpty) {
    va_list none{};
    _CLogV(ELevel::INFO, nullptr, nullptr, 0, CLFilterAction::CONSOLE, NEW_LINE, nullptr, none);
    EXPECT_EQ(console_lines.back().text, "");
    EXPECT_EQ(console_lines.back().category, "");
    EXPECT_EQ(without_time(write(ELevel::INFO, nullptr, NEW_LINE, "x")), "INFO: [] > x");
}

ENGINE_PRINTF(1, 2) std::string formatted(const char* format, ...) {
    char out[200];
    va_list args;
    va_start(args, format);
    const int length = kernel::format_text(out, sizeof(out), format, args);
    va_end(args);
    return length < 0 ? "failed" : out;
}

TEST(FormatText, PrintsPointersAlikeOnEverySystem) {
    void* const pointer = reinterpret_cast<void*>(0xBEEF);
    EXPECT_EQ(formatted("%p|%p|100%%p|%s", pointer, static_cast<void*>(nullptr), "p%p"), "0xbeef|0x0|100%p|p%p");
    EXPECT_EQ(formatted("[%10p][%-10p]", pointer, pointer), "[    0xbeef][0xbeef    ]");
    EXPECT_EQ(formatted("%d %i %u %x %% %s", -2147483647 - 1, 7, 4294967295u, 0xABCu, "s"),
              "-2147483648 7 4294967295 abc % s");
    EXPECT_EQ(formatted("%s|%05d|%s", "a", 42, "b"), "a|00042|b") << "what is not plain starts from the beginning";
    const std::string longer(300, 'x');
    EXPECT_EQ(formatted("%s", longer.c_str()), longer.substr(0, 199)) << "cut, as the C library does";
    EXPECT_EQ(formatted("%zu %lld %5.2f %x p", std::size_t{7}, -8LL, 1.5, 255u), "7 -8  1.50 ff p");
}

}  // namespace

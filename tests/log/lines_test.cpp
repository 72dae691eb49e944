#include <gmock/gmock.h>

#include <algorithm>
#include <cstdarg>

#include "engine/kernel/text.h"
#include "tests/log/log_fixture.h"

namespace {

using Log::ELevel;
constexpr auto NEW_LINE = CLLineMode::NEW_LINE;
constexpr auto CONTINUE = CLLineMode::CONTINUE;
constexpr auto CONTINUATION_LINE = CLLineMode::CONTINUATION_LINE;

class LogLines : public LogTest {};

TEST_F(LogLines, SequencesOfMessagesShareLinesAsTheirModesSay) {
    struct Step {
        const char* category;
        const char* text;
        const char* expected;
        CLLineMode::ENUM mode = NEW_LINE;
        ELevel::TYPE level = ELevel::INFO;
    };
    const std::pair<const char*, std::vector<Step>> cases[] = {
        {"mode 1 continues an open line", {{"a", "one", "INFO: [a] > one"}, {"a", " two\n", " two\r\n", CONTINUE}}},
        {"another category closes it",
         {{"a", "one", "INFO: [a] > one"}, {"b", "two\n", "\r\nINFO: [b] > two\r\n", CONTINUE}}},
        {"another level closes it",
         {{"a", "one", "INFO: [a] > one"}, {"a", "two\n", "\r\nWARN: [a] > two\r\n", CONTINUATION_LINE, ELevel::WARN}}},
        {"mode 0 closes it", {{"a", "one", "INFO: [a] > one"}, {"a", "two", "\r\nINFO: [a] > two"}}},
        {"mode 1 without an open line starts one",
         {{"a", "one\n", "INFO: [a] > one\r\n"}, {"a", "two\n", "INFO: [a] > two\r\n", CONTINUE}}},
        {"mode 2 starts a continuation line, and goes on with an open one",
         {{"a", "one\n", "INFO: [a] > one\r\n"},
          {"a", "two", "INFO: [a] | two", CONTINUATION_LINE},
          {"a", "three\n", "three\r\n", CONTINUATION_LINE}}},
        {"further lines of a message are marked", {{"a", "one\ntwo\n", "INFO: [a] > one\r\nINFO: [a] | two\r\n"}}},
        {"an empty line is a line", {{"a", "\n\n", "INFO: [a] > \r\nINFO: [a] | \r\n"}}},
        {"a return before a newline is not doubled",
         {{"a", "one\r\ntwo\r\r\n", "INFO: [a] > one\r\nINFO: [a] | two\r\r\n"}}},
        {"an empty message only closes the line", {{"a", "one", "INFO: [a] > one"}, {"a", "", "\r\n"}, {"a", "", ""}}},
        {"categories are compared over 16 bytes",
         {{"0123456789abcdefX", "one", "INFO: [0123456789abcdef] > one"},
          {"0123456789abcdefY", "two", "two", CONTINUE}}},
        {"what is no letter of a label becomes an underscore",
         {{"my cat!", "x", "INFO: [my_cat_] > x"}, {"a.b_C9\xE4", "x", "\r\nINFO: [a.b_C9_] > x"}}},
        {"no category at all", {{nullptr, "x", "INFO: [] > x"}}},
        {"an unknown level has no tag", {{"a", "x", ": [a] > x", NEW_LINE, static_cast<ELevel::TYPE>(77)}}},
    };
    for (const auto& [label, steps] : cases) {
        logging::store_line_state({});
        for (const Step& step : steps) {
            logging::LineState line = logging::load_line_state();
            line.widest_header = 0;
            logging::store_line_state(line);
            EXPECT_EQ(without_time(write(step.category, step.text, step.mode, step.level)), step.expected) << label;
        }
    }
}

TEST_F(LogLines, HeadersHaveTimeAndPositionAndArePaddedToTheWidest) {
    std::string text = write("longer", "x\n");
    std::ranges::replace_if(
        text, [](char c) { return c >= '0' && c <= '9'; }, '0');
    EXPECT_EQ(text, "{00:00:00.000} INFO: [longer] > x\r\n");
    EXPECT_EQ(without_time(write("a", "x\n")), "INFO: [a]      > x\r\n");
    EXPECT_EQ(without_time(write("longest", "x\n")), "INFO: [longest] > x\r\n");
    Log::Settings::Instance().SetMessageSource(true);
    _CLog(ELevel::INFO, "a", "some/file", -12, CLFilterAction::CONSOLE, NEW_LINE, "x%d\n", 1);
    EXPECT_EQ(without_time(console_lines.back().text), ">some/file(-12): INFO: [a] > x1\r\n");
    EXPECT_EQ(without_time(write("a", "y\n")), "INFO: [a]                  > y\r\n");
    _CLog(ELevel::INFO, "a", std::string(100'000, 'f').c_str(), 7, CLFilterAction::CONSOLE, NEW_LINE, "text\n");
    EXPECT_LT(console_lines.back().text.size(), 1200u) << "the position is cut before the text";
    EXPECT_THAT(console_lines.back().text, testing::EndsWith("INFO: [a] > text\r\n"));
}

TEST_F(LogLines, OutputStopsBeforeItsLimit) {
    // Whatever the lines are like, the same rule holds: a character is copied while fewer than 65536 - (header + 4) are
    // written, and the message itself holds at most 65535.
    const std::size_t header = std::string("{00:00:00.000} INFO: [a] ").size();
    const std::size_t limit = 65536 - (header + 4);
    EXPECT_EQ(write("a", std::string(70'000, 'x')).size(), limit);

    std::string lines;
    for (int i = 0; i < 20'000; ++i) lines += "y\n";
    logging::store_line_state({});
    const std::string text = write("a", lines);
    const std::size_t per_line = header + 2 + 3;
    ASSERT_LT(limit % per_line, header) << "the limit falls into a header, behind which one character still follows";
    EXPECT_EQ(text.size(), limit / per_line * per_line + header + 3);
}

TEST_F(LogLines, AWiderHeaderBehindAFullOpenLineStaysInTheBuffer) {
    Log::Settings::Instance().SetMessageSource(true);
    write("a", "");
    const std::string text = std::string(65'480, 'x') + "\n" + std::string(50, 'y');
    _CLog(ELevel::INFO, "a", nullptr, 0, CLFilterAction::CONSOLE, NEW_LINE, "open");
    _CLog(ELevel::INFO, "a", std::string(2000, 'f').c_str(), 1, CLFilterAction::CONSOLE, CONTINUE, "%s", text.c_str());
    EXPECT_EQ(console_lines.back().text.substr(0, 65'482), std::string(65'480, 'x') + "\r\n");
    EXPECT_TRUE(console_lines.back().text.ends_with("| y"));
}

TEST_F(LogLines, LongAndShortMessagesAreLaidOutAlike) {
    for (const std::size_t length : {1022u, 1023u, 1024u, 1025u, 5000u}) {
        const std::string body(length, 'x');
        EXPECT_EQ(without_time(write("a", body + "\n")), "INFO: [a] > " + body + "\r\n");
    }
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
    va_list none{};
    _CLogV(ELevel::INFO, nullptr, nullptr, 0, CLFilterAction::CONSOLE, CONTINUE, nullptr, none);
    EXPECT_EQ(console_lines.back().category + console_lines.back().text, "");
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

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <thread>

#include "engine/filesystem/log/levels.h"
#include "engine/filesystem/log/message.h"
#include "engine/filesystem/log/sinks.h"
#include "engine/kernel/text.h"
#include "tests/log/log_fixture.h"

// What is let through, to where, what is kept of it, and what its lines look like.

namespace {

using Log::ELevel;
using Log::Settings;
using logging::code;
constexpr std::uint32_t all_bits = 0xFFFFFFFF;

class LogFilter : public LogTest {};

TEST_F(LogFilter, FixedRulesComeBeforeTheTableAndModesBeforeBoth) {
    const struct {
        char id[5];
        std::uint32_t normal, verbose;
    } cases[] = {{"FATL", 3, 3}, {"INFO", 3, 3}, {"ERRR", 3, 3}, {"EXIT", 3, 3}, {"DXGI", 3, 3},
                 {"WARN", 1, 3}, {"DEBG", 1, 3}, {"VERB", 1, 1}, {"VER0", 1, 1}, {"VER9", 1, 1},
                 {"VERE", 1, 1}, {"VERX", 0, 0}, {"SESE", 1, 1}, {"SESI", 1, 1}, {"SESL", 1, 1},
                 {"SESW", 1, 1}, {"SESX", 0, 0}, {"NONE", 0, 0}, {"LLOG", 0, 0}};
    for (const auto& row : cases) {
        logging::state.verbose = false;
        _CLFilterSetMode(CLFilterMode::NORMAL);
        EXPECT_EQ(_CLFilter(code(row.id)), row.normal) << row.id;
        logging::state.verbose = true;
        EXPECT_EQ(_CLFilter(code(row.id)), row.verbose) << row.id;
        _CLFilterSetMode(CLFilterMode::NO_LOGFILE);
        EXPECT_EQ(_CLFilter(code(row.id)), row.verbose & ~2u) << row.id;
    }
    logging::state.verbose = false;
    _CLFilterAdd(code("WARN"), all_bits, CLFilterAction::LOGFILE);
    _CLFilterAdd(code("VERB"), all_bits, CLFilterAction::LOGFILE);
    EXPECT_EQ(_CLFilter(code("VERB")), 1u);
    _CLFilterSetMode(CLFilterMode::NORMAL);
    EXPECT_EQ(_CLFilter(code("WARN")), 1u) << "the table is not asked for fixed codes";
    EXPECT_EQ(_CLFilter(code("VERB")), 3u) << "entries add to the default";
    const std::uint32_t errors = logging::state.errors, warnings = logging::state.warnings;
    const std::pair<CLFilterMode::ENUM, std::uint32_t> modes[] = {
        {CLFilterMode::ALL_CONSOLE, 1}, {CLFilterMode::ALL_LOGFILE, 2}, {CLFilterMode::ALL_NOWHERE, 0}};
    for (const auto& [mode, action] : modes) {
        _CLFilterSetMode(mode);
        EXPECT_EQ(_CLFilterGetMode(), mode);
        for (const auto& row : cases) EXPECT_EQ(_CLFilter(code(row.id)), action) << row.id;
    }
    EXPECT_EQ(logging::state.errors, errors + 9) << "of three kinds in each mode";
    EXPECT_EQ(logging::state.warnings, warnings + 3);
}

TEST_F(LogFilter, PatternsAreAlignedToTheLowEnd) {
    const struct {
        const char* pattern;
        std::uint32_t hit, miss;
    } cases[] = {
        {"VE", code("xxVE"), code("VExx")},   {"VE??", code("xxVE"), code("VExx")},
        {"ABCD", code("ABCD"), code("ABCE")}, {"A?CD", code("AxCD"), code("BxCD")},
        {"?BCD", code("xBCD"), code("xBCE")}, {"ABCDEFG", code("ABCD"), code("EFGH")},
        {"\xC4", 0x123456C4, 0x12345600},
    };
    for (const auto& row : cases) {
        _CLFilterClear();
        _CLFilterAdd(row.pattern, CLFilterAction::LOGFILE);
        EXPECT_EQ(_CLFilter(row.hit), 2u) << row.pattern;
        EXPECT_EQ(_CLFilter(row.miss), 0u) << row.pattern;
    }
    _CLFilterClear();
    for (const char* nothing : {static_cast<const char*>(nullptr), "", "?", "????"})
        _CLFilterAdd(nothing, CLFilterAction::BOTH);
    EXPECT_EQ(_CLFilter(code("ABCD")), 0u);
    _CLFilterAdd("VE", CLFilterAction::CONSOLE);
    EXPECT_EQ(_CLFilterUpdate(0x5645, CLFilterAction::LOGFILE), CLFilterAction::CONSOLE);
}

TEST_F(LogFilter, UpdateChangesTheFirstEntryOfAValueOnly) {
    _CLFilterAdd(code("ABCD"), all_bits, CLFilterAction::CONSOLE);
    _CLFilterAdd(code("ABCD"), all_bits, CLFilterAction::LOGFILE);
    EXPECT_EQ(_CLFilterUpdate(code("ABCD"), CLFilterAction::NOWHERE), CLFilterAction::CONSOLE);
    EXPECT_EQ(_CLFilterUpdate(code("EFGH"), CLFilterAction::BOTH), CLFilterAction::NOWHERE);
    EXPECT_EQ(_CLFilter(code("EFGH")), 0u) << "nothing is added";
    for (std::uint32_t i = 0; i < 1000; ++i) _CLFilterAdd(0x1000u + i, all_bits, CLFilterAction::CONSOLE);
    EXPECT_EQ(_CLFilter(code("ABCD")), 2u) << "growing keeps what was there";
    EXPECT_EQ(_CLFilter(0x1000u + 999), 1u);
}

TEST_F(LogFilter, CodesAndLevelsTranslate) {
    const std::pair<std::uint32_t, ELevel::TYPE> levels[] = {
        {code("ERRR"), ELevel::ERRR}, {code("EXIT"), ELevel::FATL}, {code("INFO"), ELevel::INFO},
        {code("LLOG"), ELevel::VERB}, {code("WARN"), ELevel::WARN}, {code("FATL"), ELevel::DEBG}};
    for (const auto& [id, level] : levels) EXPECT_EQ(_CLogLevelFromId(id), level);
    EXPECT_EQ(logging::level_id(ELevel::VER3), code("VER3"));
    EXPECT_EQ(logging::level_id(static_cast<ELevel::TYPE>(16)), 0u);
    EXPECT_EQ(_CLogCategoryFromLabel(code("aB_.")) + _CLogCategoryFromLabel(0x41002DFF), "aB_.A___");
}

class LogSettings : public LogTest {};

TEST_F(LogSettings, CategoriesHaveLevelsOfTheirOwn) {
    constexpr MessageSource source{"any", "some/file"};
    log_message(source, ELevel::WARN, 1, "held back at first\n");
    log_message(source, ELevel::INFO, 1, "yes %d\n", 5);
    ASSERT_TRUE(console_lines.size() == 1 && file_lines.size() == 1);
    EXPECT_EQ(without_time(console_lines[0].text), "INFO: [any] > yes 5\r\n");
    Settings& settings = Settings::Instance();
    settings.SetCategoryLevel("a", ELevel::ERRR);
    settings.SetCategoryLevel("b", ELevel::VERB);
    settings.SetCategoryLevel("c", ELevel::VERE);
    settings.SetCategoryLevel("a", ELevel::NONE);
    settings.SetCategoryLevel("b", ELevel::FATL);
    settings.SetCategoryLevel("unknown", ELevel::NONE);
    settings.SetCategoryLevel("0123456789abcdef-one", ELevel::DEBG);
    settings.SetLevel(ELevel::WARN);
    settings.SetMessageSource(true);
    Settings copy(settings);
    Settings moved;
    moved = std::move(copy);
    EXPECT_TRUE(moved.IsMessageSource());
    const std::pair<const char*, ELevel::TYPE> levels[] = {
        {"a", ELevel::WARN}, {"b", ELevel::FATL},     {"c", ELevel::VERE},  // moved into the free place
        {"B", ELevel::WARN}, {nullptr, ELevel::WARN}, {"0123456789abcdef-two", ELevel::DEBG},  // compared over 16 bytes
    };
    for (const auto& [category, level] : levels)
        EXPECT_EQ(moved.GetCategoryLevel(category), level) << testing::PrintToString(category);
}

TEST_F(LogSettings, ANinthCategoryIsRefusedWithAWarning) {
    Settings& settings = Settings::Instance();
    for (const char* name : {"1", "2", "3", "4", "5", "6", "7", "Logger"})
        settings.SetCategoryLevel(name, ELevel::WARN);
    settings.SetMessageSource(true);
    settings.SetCategoryLevel("ninth", ELevel::DEBG);
    EXPECT_EQ(settings.GetCategoryLevel("ninth"), ELevel::INFO);
    ASSERT_EQ(console_lines.size(), 1u);
    EXPECT_EQ(
        without_time(console_lines[0].text),
        ">engine/filesystem/logsettings(56): WARN: [Logger] > Maximal explicit logging levels exceeded maximal "
        "count = 8\r\n>engine/filesystem/logsettings(56): WARN: [Logger] | Logging level for category 'ninth' not "
        "changed.\r\n");
    settings.SetCategoryLevel("Logger", ELevel::INFO);
    settings.SetCategoryLevel("ninth", ELevel::DEBG);
    EXPECT_EQ(console_lines.size(), 1u) << "the category holds warnings back";
    settings.SetCategoryLevel("7", ELevel::VERB);
    EXPECT_EQ(settings.GetCategoryLevel("7"), ELevel::VERB) << "entries that exist still change";
}

std::string recent_lines() {
    std::string all;
    const auto append = [](const char* text, std::size_t length, void* user) {
        static_cast<std::string*>(user)->append(text, length);
    };
    logging::write_recent_lines(append, &all);
    return all;
}

TEST_F(LogSettings, TheLastLinesAreKeptForCrashReports) {
    for (int i = 0; i < 1000; ++i) write("ring", "number " + std::to_string(i) + "\n");
    write("ring", std::string(3000, 'x') + "\nshort\n");
    const std::string all = recent_lines();
    EXPECT_EQ(std::count(all.begin(), all.end(), '\n'), logging::recent_line_count);
    for (const char* kept : {"number 999\r\n", "xxx\r\n"})  // long lines lose their end, not their line
        EXPECT_THAT(all, testing::HasSubstr(kept));
    EXPECT_THAT(all, testing::Not(testing::HasSubstr("number 801\r\n")));
    EXPECT_TRUE(all.ends_with("short\r\n"));
}

TEST_F(LogSettings, ThreadsMayInterleaveButNeverRace) {
    const auto quiet = [](ELevel::TYPE, const char*, const char*) {};
    LogSetPrintCallback(quiet);
    std::atomic<int> running{4};
    // Each kind of change used to have a lock of its own.
    const auto start = [&](void (*work)(int)) {
        return std::jthread([&running, work] {
            for (int i = 0; i < 2000; ++i) work(i);
            --running;
        });
    };
    const auto write_line = [](int i) {
        const char* const end = i % 3 ? "\n" : "";
        _CLog(ELevel::INFO, "any", "f", i, CLFilterAction::CONSOLE, CLLineMode::CONTINUE, "%d%s", i, end);
    };
    const std::jthread one = start(write_line), two = start(write_line);
    const std::jthread filter = start([](int i) {
        if (i % 50 == 0) _CLFilterClear();
        _CLFilterAdd(static_cast<std::uint32_t>(i) % 50, all_bits, CLFilterAction::LOGFILE);
    });
    const std::jthread levels =
        start([](int i) { Settings::Instance().SetCategoryLevel("three", i % 2 ? ELevel::VER1 : ELevel::NONE); });
    while (running != 0) {
        EXPECT_LE(recent_lines().size(), 200'000u);
        EXPECT_THAT(_CLFilter(7), testing::AnyOf(0u, 2u));
        EXPECT_THAT(Settings::Instance().GetCategoryLevel("three"), testing::AnyOf(ELevel::INFO, ELevel::VER1));
    }
    EXPECT_EQ(LogSetPrintCallback(nullptr), static_cast<LogPrintCallback>(quiet));
}

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
    using enum CLFilterAction::ENUM;
    for (const auto& [action, category] : {std::pair(NOWHERE, "n"), {CONSOLE, "c"}, {LOGFILE, "f"}, {BOTH, "a b"}})
        _CLog(ELevel::ERRR, category, nullptr, 0, action, NEW_LINE, "x\n");
    ASSERT_TRUE(console_lines.size() == 2 && file_lines.size() == 2);
    EXPECT_EQ(console_lines[0].category + file_lines[0].category, "cf");
    EXPECT_EQ(console_lines[1].category + file_lines[1].category, "a ba b") << "as given";
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
    EXPECT_EQ(formatted("%d %u %% %s", -2147483647 - 1, 4294967295u, "s"), "-2147483648 4294967295 % s");
    EXPECT_EQ(formatted("%s|%05d|%s", "a", 42, "b"), "a|00042|b") << "what is not plain starts from the beginning";
    const std::string longer(300, 'x');
    EXPECT_EQ(formatted("%s", longer.c_str()), longer.substr(0, 199)) << "cut, as the C library does";
    EXPECT_EQ(formatted("%zu %lld %5.2f %x p", std::size_t{7}, -8LL, 1.5, 255u), "7 -8  1.50 ff p");
}

}  // namespace

#include <engine/filesystem/startup/crash.h>

#include "engine/filesystem/log/levels.h"
#include "engine/filesystem/startup/crash.h"
#include "engine/platform/process.h"
#include "tests/log/log_fixture.h"

namespace {

TEST(LogSwitches, CountOnlyAsWordsBehindAMarkerAndOptionsHaveShortValues) {
    for (const char* line : {"game -silent", "game --silent", "game /SILENT x", "-silent", "game\t-Silent\tx",
                             "game -silentx -silent", "game x-silent -silent"})
        EXPECT_TRUE(crash::has_switch(line, "silent")) << line;
    for (const char* line : {"game -silentx", "game x-silent", "game silent", "game ---silent", "game //silent",
                             "game x--silent", "game -silent=1", "game - silent", "", "game -silen", "game -/silent"})
        EXPECT_FALSE(crash::has_switch(line, "silent")) << line;
    const std::string longest(259, 'a');
    const std::pair<std::string, std::string> options[] = {
        {"game -logfile=a/b.log x", "a/b.log"},
        {"game --LogFile=A\tB", "A\tB"},
        {"/logfile=x", "x"},
        {"game -logfile= -logfile=x", "x"},
        {"game xlogfile=a -logfile=b", "b"},
        {"game logfile=a", "none"},
        {"game -logfile=" + longest, longest},
        {"game -logfile=a" + longest, "none"},
        {"game -logfile=a" + longest + " -logfile=b", "b"},
        {"game -logfile=", "none"},
    };
    for (const auto& [line, expected] : options)
        EXPECT_EQ(crash::option_value(line, "logfile=").value_or("none"), expected) << line;
}

TEST(LogConfiguration, LevelNamesAreDecodedByTheirLetters) {
    const std::pair<const char*, unsigned> cases[] = {
        {"", 0},          {"All", 15},      {"x", 15},       {"Debug", 5},     {"error", 2}, {"FATAL", 1},
        {"Info", 3},      {"warn", 4},      {"V", 6},        {"v8", 14},       {"V9", 15},   {"VER3", 6},
        {"Verbose5", 11}, {"verbosee", 15}, {"VerboseX", 6}, {"Verbose1x", 7}, {"none", 0},  {"5", 0},
    };
    for (const auto& [name, level] : cases) EXPECT_EQ(CrashLevelFromName(name), level) << name;
}

class LogConfigurationText : public LogTest {};

TEST_F(LogConfigurationText, SetsLevelsFiltersAndPositions) {
    crash::apply_configuration(
        "// levels\n!BrenixLogLevel(Verbose5)\n!brenixlogcategorylevel(\"Net\", V3)\nBrenixLogMessageSource(1)\n"
        "!Permit(AB?\?, 1, 0) !Permit(\"CDEF\", -1, -1) !Permit(GHIJ, 0, 2) !Permit() !Unknown(1)\n",
        "test");
    const auto& settings = Log::Settings::Instance();
    EXPECT_EQ(settings.GetLevel(), Log::ELevel::VER5);
    EXPECT_EQ(settings.GetCategoryLevel("Net"), Log::ELevel::VER3);
    EXPECT_TRUE(settings.IsMessageSource());
    EXPECT_EQ(_CLFilter(0x00004142), 1u);
    EXPECT_EQ(_CLFilter(logging::code("CDEF")), 3u);
    EXPECT_EQ(_CLFilter(logging::code("GHIJ")), 2u);
    crash::apply_configuration("BrenixLogLevel() BrenixLogMessageSource", "test");
    EXPECT_EQ(settings.GetLevel(), Log::ELevel::NONE) << "a missing parameter is 0 or nothing";
    EXPECT_FALSE(settings.IsMessageSource());
}

TEST(CrashNames, HoldTheTimeAndTheProcessWhereNeeded) {
    char text[64];
    platform::BoundedText name(text);
    crash::add_stamped_name(
        name, {.year = 2031, .month = 2, .day = 3, .hour = 4, .minute = 5, .second = 6, .millisecond = 78}, ".log");
    EXPECT_STREQ(text, "crash_20310203_040506078.log");
    const std::string dump = CreateDumpFilename();
    EXPECT_TRUE(dump.starts_with("out/logs/crash_20")) << dump;
    EXPECT_EQ(dump.size(), std::string("out/logs/crash_20310203_040506078.dmp").size());
    platform::BoundedText with_process(text);
    crash::add_with_process(with_process, "a.b/c");
    EXPECT_EQ(with_process.view(), "a.b/c_" + std::to_string(platform::process_id()));
}

int asked = 0;
EAssertionResult::TYPE answer = EAssertionResult::IGNORE_ONCE;
std::string asked_about;

void check_positive(int number) { SMART_ASSERT(number > 0, "number %d", number); }

TEST(Assertions, AskTheHandlerUntilTheirPlaceIsIgnored) {
    EXPECT_EQ(GetAssertFunc(), nullptr);
    const std::int32_t before = GetAssertCount();
    SetAssertFunc([](const smart_assert_data& data) {
        ++asked;
        asked_about = std::string(data.expression) + "|" + data.message + "|" + data.function;
        EXPECT_EQ(data.count, GetAssertCount());
        return answer;
    });
    check_positive(1);
    EXPECT_EQ(asked, 0);
    check_positive(-5);
    EXPECT_EQ(asked_about, "number > 0|number -5|check_positive");
    answer = EAssertionResult::IGNORE_ALWAYS;
    check_positive(-6);
    check_positive(-7);
    EXPECT_EQ(asked, 2);
    SMART_ASSERT(asked == 0);
    EXPECT_EQ(asked, 3) << "another place is not ignored";
    IncreaseAssertCount();
    EXPECT_EQ(GetAssertCount(), before + 4);
    SetAssertFunc(nullptr);
}

class AssertionDialog : public LogTest {};

TEST_F(AssertionDialog, LogsWithACallStackAndGoesOnWithoutADesktop) {
    CrashShowMessageBox(false);
    SMART_ASSERT(asked < 0, "nobody is %s", "asked");
    ASSERT_FALSE(console_lines.empty());
    for (const char* part : {"Assertion failed: asked < 0", "nobody is asked", "engine_tests"})
        EXPECT_NE(console_lines.back().text.find(part), std::string::npos) << part;
    CrashShowCallstackInAsserts(false);
    SMART_ASSERT(asked < -1);
    EXPECT_EQ(console_lines.back().text.find("engine_tests+"), std::string::npos);
    CrashShowCallstackInAsserts(true);
    CrashShowMessageBox(true);
}

}  // namespace

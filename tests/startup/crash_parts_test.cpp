#include <engine/filesystem/startup/crash.h>

#include "engine/filesystem/log/levels.h"
#include "engine/filesystem/startup/log/config.h"
#include "engine/filesystem/startup/log/switches.h"
#include "engine/filesystem/startup/crash/name.h"
#include "tests/log/log_fixture.h"

namespace {

TEST(CrashSwitches, CountOnlyAsWordsBehindAMarker) {
    const std::pair<const char*, bool> cases[] = {
        {"game -silent", true},          {"game --silent", true},
        {"game /SILENT x", true},        {"-silent", true},
        {"game\t-Silent\tx", true},      {"game -silentx -silent", true},
        {"game x-silent -silent", true}, {"game -silentx", false},
        {"game x-silent", false},        {"game silent", false},
        {"game ---silent", false},       {"game //silent", false},
        {"game x--silent", false},       {"game -silent=1", false},
        {"game - silent", false},        {"", false},
        {"game -silen", false},          {"game -/silent", false},
    };
    for (const auto& [line, expected] : cases) EXPECT_EQ(crash::has_switch(line, "silent"), expected) << line;
}

TEST(CrashSwitches, OptionsHaveShortValuesUpToTheNextBlank) {
    const std::string longest(259, 'a');
    const std::pair<std::string, std::string> cases[] = {
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
    for (const auto& [line, expected] : cases) {
        EXPECT_EQ(crash::option_value(line, "logfile=").value_or("none"), expected) << line;
    }
}

TEST(CrashConfiguration, LevelNamesAreDecodedByTheirLetters) {
    const std::pair<const char*, unsigned> cases[] = {
        {"", 0},          {"All", 15},     {"x", 15},        {"Debug", 5},     {"error", 2},
        {"FATAL", 1},     {"Info", 3},     {"warn", 4},      {"V", 6},         {"V0", 6},
        {"V1", 7},        {"v8", 14},      {"V9", 15},       {"VE", 6},        {"VER", 6},
        {"VER3", 6},      {"Verbose", 6},  {"Verbose5", 11}, {"Verbose9", 15}, {"verbosee", 15},
        {"VerboseE", 15}, {"VerboseX", 6}, {"Verbose1x", 7}, {"none", 0},      {"5", 0},
    };
    for (const auto& [name, level] : cases) EXPECT_EQ(crash::level_from_name(name), level) << name;
}

class CrashConfigurationText : public LogTest {};

TEST_F(CrashConfigurationText, SetsLevelsFiltersAndPositions) {
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
}

TEST_F(CrashConfigurationText, ACommandWithoutItsParametersReadsZeroOrNothing) {
    crash::apply_configuration("BrenixLogLevel() BrenixLogMessageSource", "test");
    EXPECT_EQ(Log::Settings::Instance().GetLevel(), Log::ELevel::NONE);
    EXPECT_FALSE(Log::Settings::Instance().IsMessageSource());
}

TEST(CrashNames, AreStampedLikeTheLogFile) {
    char stamp[crash::stamp_capacity];
    crash::write_stamp(stamp,
                       {.year = 2031, .month = 2, .day = 3, .hour = 4, .minute = 5, .second = 6, .millisecond = 78});
    EXPECT_STREQ(stamp, "20310203_040506078");
    const std::string name = CreateDumpFilename();
    EXPECT_TRUE(name.starts_with("out/logs/crash_20")) << name;
    EXPECT_EQ(name.size(), std::string("out/logs/crash_20310203_040506078.dmp").size());
}

int asked = 0;
EAssertionResult::TYPE answer = EAssertionResult::IGNORE_ONCE;
std::string asked_about;

EAssertionResult::TYPE record(const smart_assert_data& data) {
    ++asked;
    asked_about = std::string(data.expression) + "|" + data.message + "|" + data.function;
    EXPECT_EQ(data.count, GetAssertCount());
    return answer;
}

void check_positive(int number) { SMART_ASSERT(number > 0, "number %d", number); }

TEST(Assertions, AskTheHandlerUntilTheirPlaceIsIgnored) {
    EXPECT_EQ(GetAssertFunc(), nullptr);
    SetAssertFunc(record);
    EXPECT_EQ(GetAssertFunc(), record);
    const std::int32_t before = GetAssertCount();
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
    EXPECT_EQ(GetAssertCount(), before + 3);
    IncreaseAssertCount();
    EXPECT_EQ(GetAssertCount(), before + 4);
    SetAssertFunc(nullptr);
}

class AssertionDialog : public LogTest {};

TEST_F(AssertionDialog, LogsAndGoesOnWithoutADesktop) {
    CrashShowMessageBox(false);
    EXPECT_FALSE(CrashCanShowMessageBox());
    SMART_ASSERT(asked < 0, "nobody is %s", "asked");
    ASSERT_FALSE(console_lines.empty());
    EXPECT_NE(console_lines.back().text.find("Assertion failed: asked < 0"), std::string::npos);
    EXPECT_NE(console_lines.back().text.find("nobody is asked"), std::string::npos);
    EXPECT_NE(console_lines.back().text.find("0x0"), std::string::npos) << "with a call stack";
    CrashShowCallstackInAsserts(false);
    SMART_ASSERT(asked < -1);
    EXPECT_EQ(console_lines.back().text.find("0x0"), std::string::npos);
    CrashShowCallstackInAsserts(true);
    CrashShowMessageBox(true);
}

}  // namespace

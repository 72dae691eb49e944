#include <engine/filesystem/startup/crash.h>

#include <gmock/gmock.h>

#include "engine/filesystem/log/levels.h"
#include "engine/filesystem/startup/crash.h"
#include "tests/log/log_fixture.h"

namespace {

TEST(LogSwitches, CountOnlyAsWordsBehindAMarkerAndOptionsHaveShortValues) {
    for (const char* line : {"game --silent", "game /SILENT x", "-silent", "game\t-Silent\tx", "game -silentx -silent"})
        EXPECT_TRUE(crash::has_switch(line, "silent")) << line;
    for (const char* line : {"game -silentx", "game x-silent", "game silent", "game ---silent", "game //silent",
                             "game -silent=1", "game - silent", "", "game -silen", "game -/silent"})
        EXPECT_FALSE(crash::has_switch(line, "silent")) << line;
    const std::string longest(259, 'a');
    const std::pair<std::string, std::string> options[] = {
        {"game -logfile=a/b.log x", "a/b.log"},
        {"/LogFile=A\tB", "A\tB"},
        {"game -logfile= -logfile=x", "x"},
        {"game xlogfile=a -logfile=b", "b"},
        {"game logfile=a -logfile=", "none"},
        {"game -logfile=" + longest, longest},
        {"game -logfile=a" + longest + " -logfile=b", "b"},
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
    const auto& settings = Log::Settings::Instance();
    crash::apply_configuration(
        "!brenixlogcategorylevel(\"Net\", V3)\nBrenixLogMessageSource(1)\n"
        "!Permit(AB?\?, 1, 0) !Permit(\"CDEF\", -1, -1) !Permit() !Unknown(1)\n",
        "test");
    EXPECT_EQ(settings.GetCategoryLevel("Net"), Log::ELevel::VER3);
    EXPECT_TRUE(settings.IsMessageSource());
    EXPECT_EQ(_CLFilter(0x00004142), 1u);
    EXPECT_EQ(_CLFilter(logging::code("CDEF")), 3u);
    crash::apply_configuration("BrenixLogLevel() BrenixLogMessageSource", "test");
    EXPECT_EQ(settings.GetLevel(), Log::ELevel::NONE) << "a missing parameter is 0 or nothing";
    EXPECT_FALSE(settings.IsMessageSource());
}

class Assertions : public LogTest {
protected:
    ~Assertions() override { SetAssertFunc(nullptr); }
};

int asked = 0;
EAssertionResult::TYPE answer = EAssertionResult::IGNORE_ONCE;
std::string asked_about;

void check_positive(int number) { SMART_ASSERT(number > 0, "number %d", number); }

TEST_F(Assertions, AskTheHandlerUntilTheirPlaceIsIgnored) {
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
    for (const int number : {-6, -7}) check_positive(number);
    EXPECT_EQ(asked, 2);
    SMART_ASSERT(asked == 0);
    EXPECT_EQ(asked, 3) << "another place is not ignored";
    IncreaseAssertCount();
    EXPECT_EQ(GetAssertCount(), before + 4);
}

TEST_F(Assertions, WithoutAHandlerOrADesktopLogACallStackAndGoOn) {
    CrashShowMessageBox(false);
    SMART_ASSERT(asked < 0, "nobody is %s", "asked");
    ASSERT_FALSE(console_lines.empty());
    for (const char* part : {"Assertion failed: asked < 0", "nobody is asked", "engine_tests"})
        EXPECT_THAT(console_lines.back().text, testing::HasSubstr(part));
    CrashShowCallstackInAsserts(false);
    SMART_ASSERT(asked < -1);
    EXPECT_THAT(console_lines.back().text, testing::Not(testing::HasSubstr("engine_tests+")));
    CrashShowCallstackInAsserts(true);
    CrashShowMessageBox(true);
}

}  // namespace

#include "engine/filesystem/log/levels.h"
#include "tests/log/log_fixture.h"

namespace {

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
    using Log::ELevel;
    const std::pair<std::uint32_t, ELevel::TYPE> levels[] = {
        {code("ERRR"), ELevel::ERRR}, {code("EXIT"), ELevel::FATL}, {code("INFO"), ELevel::INFO},
        {code("LLOG"), ELevel::VERB}, {code("WARN"), ELevel::WARN}, {code("FATL"), ELevel::DEBG}};
    for (const auto& [id, level] : levels) EXPECT_EQ(_CLogLevelFromId(id), level);
    EXPECT_EQ(logging::level_id(ELevel::VER3), code("VER3"));
    EXPECT_EQ(logging::level_id(static_cast<ELevel::TYPE>(16)), 0u);
    EXPECT_EQ(_CLogCategoryFromLabel(code("aB_.")) + _CLogCategoryFromLabel(0x41002DFF), "aB_.A___");
}

}  // namespace

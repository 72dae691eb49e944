#include <thread>

#include "engine/filesystem/log/levels.h"
#include "tests/log/log_fixture.h"

namespace {

using logging::code;

class LogFilter : public LogTest {};

TEST_F(LogFilter, FixedRulesComeBeforeTheTable) {
    struct Case {
        const char* id;
        std::uint32_t normal, verbose, no_logfile;
    };
    const Case cases[] = {{"FATL", 3, 3, 1}, {"INFO", 3, 3, 1}, {"ERRR", 3, 3, 1}, {"EXIT", 3, 3, 1}, {"DXGI", 3, 3, 1},
                          {"WARN", 1, 3, 1}, {"DEBG", 1, 3, 1}, {"VERB", 1, 1, 1}, {"VER0", 1, 1, 1}, {"VER9", 1, 1, 1},
                          {"VERE", 1, 1, 1}, {"VERX", 0, 0, 0}, {"SESE", 1, 1, 1}, {"SESI", 1, 1, 1}, {"SESL", 1, 1, 1},
                          {"SESW", 1, 1, 1}, {"SESX", 0, 0, 0}, {"NONE", 0, 0, 0}, {"LLOG", 0, 0, 0}};
    const auto to_id = [](const char* text) {
        return static_cast<std::uint32_t>(text[0] << 24 | text[1] << 16 | text[2] << 8 | text[3]);
    };
    for (const Case& row : cases) {
        logging::state.start_up.verbose = false;
        _CLFilterSetMode(CLFilterMode::NORMAL);
        EXPECT_EQ(_CLFilter(to_id(row.id)), row.normal) << row.id;
        logging::state.start_up.verbose = true;
        EXPECT_EQ(_CLFilter(to_id(row.id)), row.verbose) << row.id;
        _CLFilterSetMode(CLFilterMode::NO_LOGFILE);
        EXPECT_EQ(_CLFilter(to_id(row.id)), row.no_logfile) << row.id;
    }
    _CLFilterSetMode(CLFilterMode::NORMAL);
    logging::state.start_up.verbose = false;
    _CLFilterAdd(code("WARN"), 0xFFFFFFFF, CLFilterAction::LOGFILE);
    EXPECT_EQ(_CLFilter(code("WARN")), 1u) << "the table is not asked for fixed codes";
    _CLFilterAdd(code("VERB"), 0xFFFFFFFF, CLFilterAction::LOGFILE);
    EXPECT_EQ(_CLFilter(code("VERB")), 3u) << "entries add to the default";
    _CLFilterSetMode(CLFilterMode::NO_LOGFILE);
    EXPECT_EQ(_CLFilter(code("VERB")), 1u);
}

TEST_F(LogFilter, ModesOverrideAndStillCount) {
    const std::uint32_t errors = logging::error_count();
    const std::uint32_t warnings = logging::warning_count();
    const std::pair<CLFilterMode::ENUM, std::uint32_t> modes[] = {
        {CLFilterMode::ALL_CONSOLE, 1}, {CLFilterMode::ALL_LOGFILE, 2}, {CLFilterMode::ALL_NOWHERE, 0}};
    for (const auto& [mode, action] : modes) {
        _CLFilterSetMode(mode);
        EXPECT_EQ(_CLFilterGetMode(), mode);
        for (const std::uint32_t id : {code("ERRR"), code("EXIT"), code("FATL"), code("WARN"), code("ANY_")}) {
            EXPECT_EQ(_CLFilter(id), action);
        }
    }
    EXPECT_EQ(logging::error_count(), errors + 9);
    EXPECT_EQ(logging::warning_count(), warnings + 3);
}

TEST_F(LogFilter, PatternsAreAlignedToTheLowEnd) {
    struct Case {
        const char* pattern;
        std::uint32_t hit, miss;
    };
    const Case cases[] = {
        {"VE", code("xxVE"), code("VExx")},   {"VE??", code("xxVE"), code("VExx")},
        {"ABCD", code("ABCD"), code("ABCE")}, {"A?CD", code("AxCD"), code("BxCD")},
        {"?BCD", code("xBCD"), code("xBCE")}, {"ABCDEFG", code("ABCD"), code("EFGH")},
        {"\xC4", 0x123456C4, 0x12345600},
    };
    for (const Case& row : cases) {
        _CLFilterClear();
        _CLFilterAdd(row.pattern, CLFilterAction::LOGFILE);
        EXPECT_EQ(_CLFilter(row.hit), 2u) << row.pattern;
        EXPECT_EQ(_CLFilter(row.miss), 0u) << row.pattern;
    }
    _CLFilterClear();
    for (const char* pattern : {static_cast<const char*>(nullptr), "", "?", "????"}) {
        _CLFilterAdd(pattern, CLFilterAction::BOTH);
        EXPECT_EQ(_CLFilter(code("ABCD")), 0u) << "adds nothing";
    }
    _CLFilterAdd("VE", CLFilterAction::CONSOLE);
    EXPECT_EQ(_CLFilterUpdate(0x5645, CLFilterAction::LOGFILE), CLFilterAction::CONSOLE);
}

TEST_F(LogFilter, UpdateChangesTheFirstEntryOfAValueOnly) {
    _CLFilterAdd(code("ABCD"), 0xFFFFFFFF, CLFilterAction::CONSOLE);
    _CLFilterAdd(code("ABCD"), 0xFFFFFFFF, CLFilterAction::LOGFILE);
    EXPECT_EQ(_CLFilterUpdate(code("ABCD"), CLFilterAction::NOWHERE), CLFilterAction::CONSOLE);
    EXPECT_EQ(_CLFilter(code("ABCD")), 2u);
    EXPECT_EQ(_CLFilterUpdate(code("EFGH"), CLFilterAction::BOTH), CLFilterAction::NOWHERE);
    EXPECT_EQ(_CLFilter(code("EFGH")), 0u) << "nothing is added";
    for (std::uint32_t i = 0; i < 1000; ++i) _CLFilterAdd(0x1000u + i, 0xFFFFFFFF, CLFilterAction::CONSOLE);
    EXPECT_EQ(_CLFilter(code("ABCD")), 2u) << "growing keeps what was there";
    EXPECT_EQ(_CLFilter(0x1000u + 999), 1u);
    _CLFilterClear();
    EXPECT_EQ(_CLFilter(code("ABCD")), 0u);
}

TEST_F(LogFilter, CodesAndLevelsTranslate) {
    using Log::ELevel;
    EXPECT_EQ(_CLogLevelFromId(code("ERRR")), ELevel::ERRR);
    EXPECT_EQ(_CLogLevelFromId(code("EXIT")), ELevel::FATL);
    EXPECT_EQ(_CLogLevelFromId(code("INFO")), ELevel::INFO);
    EXPECT_EQ(_CLogLevelFromId(code("LLOG")), ELevel::VERB);
    EXPECT_EQ(_CLogLevelFromId(code("WARN")), ELevel::WARN);
    EXPECT_EQ(_CLogLevelFromId(code("FATL")), ELevel::DEBG);
    EXPECT_EQ(logging::level_id(ELevel::VER3), code("VER3"));
    EXPECT_EQ(logging::level_id(static_cast<ELevel::TYPE>(16)), 0u);
    EXPECT_EQ(_CLogCategoryFromLabel(code("aB_.")), "aB_.");
    EXPECT_EQ(_CLogCategoryFromLabel(0x41002DFF), "A___");
}

TEST_F(LogFilter, ReadersAndChangersRunTogether) {
    std::atomic<bool> stop{false};
    std::thread changer([&] {
        for (int round = 0; round < 300; ++round) {
            _CLFilterClear();
            for (std::uint32_t i = 0; i < 50; ++i) _CLFilterAdd(i, 0xFFFFFFFF, CLFilterAction::LOGFILE);
            Log::Settings::Instance().SetCategoryLevel("one", round % 2 ? Log::ELevel::VER1 : Log::ELevel::NONE);
        }
        stop = true;
    });
    while (!stop) {
        const std::uint32_t action = _CLFilter(7);
        EXPECT_TRUE(action == 0 || action == 2) << action;
        const auto level = Log::Settings::Instance().GetCategoryLevel("one");
        EXPECT_TRUE(level == Log::ELevel::INFO || level == Log::ELevel::VER1) << level;
    }
    changer.join();
}

}  // namespace

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <thread>

#include "engine/filesystem/log/message.h"
#include "engine/filesystem/log/sinks.h"
#include "tests/log/log_fixture.h"

namespace {

using Log::ELevel;
using Log::Settings;

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
    settings.SetCategoryLevel("unknown", ELevel::NONE);
    EXPECT_EQ(settings.GetCategoryLevel("b"), ELevel::VERB);
    EXPECT_EQ(settings.GetCategoryLevel("B"), ELevel::INFO) << "case counts";
    EXPECT_EQ(settings.GetCategoryLevel(nullptr), ELevel::INFO);
    settings.SetCategoryLevel("a", ELevel::NONE);
    EXPECT_EQ(settings.GetCategoryLevel("a"), ELevel::INFO);
    EXPECT_EQ(settings.GetCategoryLevel("c"), ELevel::VERE) << "moved into the free place";
    settings.SetCategoryLevel("b", ELevel::FATL);
    settings.SetCategoryLevel("0123456789abcdef-one", ELevel::DEBG);
    EXPECT_EQ(settings.GetCategoryLevel("0123456789abcdef-two"), ELevel::DEBG) << "compared over 16 bytes";
    settings.SetLevel(ELevel::WARN);
    settings.SetMessageSource(true);
    Settings copy(settings);
    Settings moved;
    moved = std::move(copy);
    EXPECT_EQ(moved.GetCategoryLevel("other"), ELevel::WARN);
    EXPECT_EQ(moved.GetCategoryLevel("b"), ELevel::FATL);
    EXPECT_TRUE(moved.IsMessageSource());
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
    logging::write_recent_lines(
        [](const char* text, std::size_t length, void* user) { static_cast<std::string*>(user)->append(text, length); },
        &all);
    return all;
}

TEST_F(LogSettings, TheLastLinesAreKeptForCrashReports) {
    for (int i = 0; i < 1000; ++i) write("ring", "number " + std::to_string(i) + "\n");
    write("ring", std::string(3000, 'x') + "\nshort\n");
    const std::string all = recent_lines();
    EXPECT_EQ(std::count(all.begin(), all.end(), '\n'), logging::recent_line_count);
    EXPECT_NE(all.find("number 999\r\n"), std::string::npos);
    EXPECT_EQ(all.find("number 801\r\n"), std::string::npos);
    EXPECT_NE(all.find("xxx\r\n"), std::string::npos) << "long lines lose their end, not their line";
    EXPECT_TRUE(all.ends_with("short\r\n"));
}

TEST_F(LogSettings, ThreadsMayInterleaveButNeverRace) {
    const auto quiet = [](ELevel::TYPE, const char*, const char*) {};
    LogSetPrintCallback(quiet);
    std::atomic<int> running{4};
    const auto start = [&](auto work) {
        return std::jthread([&running, work] {
            for (int i = 0; i < 2000; ++i) work(i);
            --running;
        });
    };
    const auto write_lines = [](const char* category) {
        return [=](int i) {
            const char* const end = i % 3 ? "\n" : "";
            _CLog(ELevel::INFO, category, "f", i, CLFilterAction::CONSOLE, CLLineMode::CONTINUE, "%d%s", i, end);
        };
    };
    const std::jthread one = start(write_lines("one")), two = start(write_lines("two"));
    const std::jthread filter = start([](int i) {
        if (i % 50 == 0) _CLFilterClear();
        _CLFilterAdd(static_cast<std::uint32_t>(i) % 50, 0xFFFFFFFF, CLFilterAction::LOGFILE);
    });
    // Each kind of change used to have a lock of its own.
    const std::jthread levels =
        start([](int i) { Settings::Instance().SetCategoryLevel("three", i % 2 ? ELevel::VER1 : ELevel::NONE); });
    while (running != 0) {
        EXPECT_LE(recent_lines().size(), 200'000u);
        EXPECT_THAT(_CLFilter(7), testing::AnyOf(0u, 2u));
        EXPECT_THAT(Settings::Instance().GetCategoryLevel("three"), testing::AnyOf(ELevel::INFO, ELevel::VER1));
    }
    EXPECT_EQ(LogSetPrintCallback(nullptr), static_cast<LogPrintCallback>(quiet));
}

}  // namespace

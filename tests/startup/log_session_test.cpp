// What the log and the assertions are told at the start, and whole sessions.
#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <thread>

#include <engine/filesystem/access.h>
#include <engine/filesystem/startup/crash.h>

#include "engine/filesystem/contract/failure.h"
#include "engine/filesystem/log/levels.h"
#include "engine/filesystem/log/message.h"
#include "engine/filesystem/registry/registry.h"
#include "engine/filesystem/startup/log.h"
#include "engine/platform/process.h"
#include "tests/log/log_fixture.h"
#include "tests/startup/child.h"
#include "tests/support/run_together.h"
#include "tests/support/temp_directory.h"

#ifndef _WIN32
#include <sys/wait.h>
#include <unistd.h>
#endif

namespace {

using logging::code;
using testing::HasSubstr;

TEST(LogSwitches, CountOnlyAsWordsBehindAMarkerAndOptionsHaveShortValues) {
    for (const char* line : {"game /SILENT x", "-silent", "game\t-Silent\tx", "game -silentx -silent"})
        EXPECT_TRUE(crash::has_switch(line, "silent")) << line;
    for (const char* line : {"game x-silent", "game silent", "game ---silent", "game //silent", "game -silent=1", ""})
        EXPECT_FALSE(crash::has_switch(line, "silent")) << line;
    const std::string longest(259, 'a');
    const std::pair<std::string, std::string> options[] = {
        {"/LogFile=A\tB", "A\tB"},
        {"game -logfile= -logfile=x", "x"},
        {"game xlogfile=a -logfile=", "none"},
        {"game -logfile=" + longest, longest},
        {"game -logfile=a" + longest + " -logfile=b", "b"},
    };
    for (const auto& [line, expected] : options)
        EXPECT_EQ(crash::option_value(line, "logfile=").value_or("none"), expected) << line;
}

class LogConfiguration : public LogTest {};

TEST_F(LogConfiguration, SetsLevelsByTheirLettersFiltersAndPositions) {
    const std::pair<const char*, unsigned> levels[] = {
        {"", 0},          {"All", 15},      {"x", 15},       {"Debug", 5},     {"error", 2}, {"FATAL", 1},
        {"Info", 3},      {"warn", 4},      {"V", 6},        {"v8", 14},       {"V9", 15},   {"VER3", 6},
        {"Verbose5", 11}, {"verbosee", 15}, {"VerboseX", 6}, {"Verbose1x", 7}, {"none", 0},  {"5", 0},
    };
    for (const auto& [name, level] : levels) EXPECT_EQ(CrashLevelFromName(name), level) << name;
    const auto& settings = Log::Settings::Instance();
    crash::apply_configuration(
        "BrenixLogMessageSource(1) !Permit(AB?\?, 1, 0) !Permit(\"CDEF\", -1, -1) !Permit() !Unknown(1)\n", "test");
    EXPECT_TRUE(settings.IsMessageSource());
    EXPECT_EQ(_CLFilter(0x00004142), 1u);
    EXPECT_EQ(_CLFilter(logging::code("CDEF")), 3u);
    crash::apply_configuration("BrenixLogLevel() BrenixLogMessageSource", "test");
    EXPECT_EQ(settings.GetLevel(), Log::ELevel::NONE) << "a missing parameter is 0 or nothing";
    EXPECT_FALSE(settings.IsMessageSource());
}

class Assertions : public LogTest {};

int asked = 0;
EAssertionResult::TYPE answer = EAssertionResult::IGNORE_ONCE;
std::string asked_about;

void check_positive(int number) { SMART_ASSERT(number > 0, "number %d", number); }

TEST_F(Assertions, AskTheHandlerUntilTheirPlaceIsIgnoredAndWithoutOneLogACallStack) {
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

    SetAssertFunc(nullptr);
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

// The log starts once in a process, so each of these runs in a child.

/// A child that starts its log by itself.
class LateChild : public testing::Test {
protected:
    ~LateChild() override {
        CrashClose();
        fs::shutdown();
    }
    static void session() {
        constexpr MessageSource file_system{"FileSystem", "some/file"};
        say("a line");
        log_message(file_system, Log::ELevel::VER1, 1, "in detail\n");
        log_message(file_system, Log::ELevel::VER2, 1, "in more detail\n");
        const char* const name = CrashGetLogFileName();
        const Log::Settings& settings = Log::Settings::Instance();
        std::printf("log=%s\nlevel=%u Net=%u\nLLOG=%u CLOG=%u WARN=%u\n", name == nullptr ? "none" : name,
                    settings.GetLevel(), settings.GetCategoryLevel("Net"), _CLFilter(code("LLOG")),
                    _CLFilter(code("CLOG")), _CLFilter(code("WARN")));
        CrashClose();
        CrashInit();
        say("after the end");
        EXPECT_EQ(CrashGetLogFileName(), nullptr) << "closed is closed";
    }
};

/// A child whose log is there.
class LogChild : public LateChild {
protected:
    void SetUp() override {
        ASSERT_TRUE(start_file_system());
        CrashInit();
    }
};

TEST_F(LogChild, DISABLED_session) { session(); }
TEST_F(LogChild, DISABLED_silence) {}
TEST_F(LogChild, DISABLED_close_late) {
    EXPECT_NE(CrashGetLogFileName(), nullptr);
    fs::shutdown();
}

TEST_F(LogChild, DISABLED_full_disk) {
    static int heard = 0;
    say("before");
    CrashSetPrintCallback([](Log::ELevel::TYPE, const char*, const char*) { ++heard; });
    platform::inject_fault(platform::FaultPoint::WRITE, 1, platform::Failure::NONE, false);
    say("this line is cut in the middle");
    platform::inject_fault(platform::FaultPoint::WRITE, 1, platform::Failure::DISK_FULL, true);
    fs::clear_error();
    for (int i = 0; i < 100; ++i) say("lost");
    platform::clear_faults();
    EXPECT_EQ(heard, 101);
    EXPECT_EQ(fs::last_error().code, EFSError::NONE);
    say("after");
}

TEST_F(LogChild, DISABLED_exit) {
    std::atexit([] { std::puts("still here"); });
    for (const auto& [category, text] : {std::pair("EXITS", "goes on\n"), std::pair("EXIT", "the reason\n")})
        _CLog(Log::ELevel::FATL, category, nullptr, 0, _CLFilter(code("FATL")), CLLineMode::NEW_LINE, "%s", text);
    say("still here");
}

TEST_F(LateChild, DISABLED_no_root) {
    fs::init((child_root() + "/none").c_str(), FFSAddSourceFlags::MUST_EXIST, "", false, false, nullptr);
    std::puts("still here");
}

TEST_F(LogChild, DISABLED_console) {
    CrashInitOutToConsole();
    EXPECT_EQ(CrashGetConsoleHandle(), platform::standard_output());
    say("seen one", CLFilterAction::CONSOLE);
    CrashDisableOutToConsole();
    EXPECT_EQ(CrashGetConsoleHandle(), nullptr);
    say("still here", CLFilterAction::CONSOLE);
}

TEST_F(LateChild, DISABLED_start) {
    say("too early");
    EXPECT_EQ(CrashGetLogFileName(), nullptr);
    std::ofstream("CrashLog.cfg") << "!BrenixLogCategoryLevel(Net, V3)\n";
    say("the configuration is looked for again");
    EXPECT_EQ(Log::Settings::Instance().GetCategoryLevel("Net"), Log::ELevel::VER3);
    ASSERT_TRUE(start_file_system());
    {
        const fs::registry::SharedGuard guard;
        say("under the lock");
        EXPECT_EQ(CrashGetLogFileName(), nullptr);
    }
    fs::set_error(EFSError::IN_USE, "mine", "The caller's own failure.");
    say("in time");
    EXPECT_EQ(fs::last_error().code, EFSError::IN_USE) << "opening the log leaves the caller's failure alone";
}

TEST_F(LateChild, DISABLED_crowd) {
    run_together(5, [](std::size_t id) {
        if (id == 0) {
            EXPECT_TRUE(start_file_system());
            EXPECT_TRUE(GenerateDump() || fs::last_error().code == EFSError::IN_USE);
        }
        for (int line = 0; id != 0 && line < 200; ++line) say("crowd");
        EXPECT_TRUE(GenerateDump((child_root() + "/dump").c_str()) || fs::last_error().code != EFSError::NONE);
    });
    say("last");
}

TEST_F(LateChild, DISABLED_taken) {
    ASSERT_TRUE(start_file_system());
    SFsFile* const taken = fs::open("out/logs/mine.log", EFSMode::WRITE, FFSOpenFlags::CREATE);
    CrashInit();
    session();
    fs::close(taken);
}

#ifndef _WIN32
constexpr int process_count = 20;
constexpr int line_count = 200;

TEST_F(LogChild, DISABLED_fork) {
    const auto wait_for_all = [] {
        for (int status = 0; wait(&status) > 0;) EXPECT_EQ(status, 0);
    };
    if (fork() == 0) {
        CrashClose();  // used to remove the empty log of the process that made it
        _exit(0);
    }
    wait_for_all();
    const auto write = [](int line, int process) {
        _CLog(Log::ELevel::INFO, "Test", nullptr, 0, CLFilterAction::LOGFILE, CLLineMode::NEW_LINE, "line %d of %d\n",
              line, process);
    };
    std::atomic<bool> is_over{false};
    std::thread other([&] {  // children used to wait for ever for the lock that it held
        while (!is_over) write(0, 0);
    });
    for (int process = 0; process < process_count; ++process) {
        if (fork() != 0) continue;
        alarm(60);
        for (int i = 0; i < line_count; ++i) write(i, process);
        _exit(0);
    }
    is_over = true;
    other.join();
    wait_for_all();
}

TEST(LogSession, OfAHostThatForksHasEveryLineOfEveryProcess) {
    const ChildResult result = run_child("LogChild.DISABLED_fork");
    EXPECT_EQ(result.exit_code, 0) << result.output;
    ASSERT_EQ(result.files.size(), 1u);
    std::istringstream lines(result.files.begin()->second);
    std::set<std::string> found;
    for (std::string line; std::getline(lines, line);) found.insert(line.substr(line.find('>')));
    EXPECT_EQ(found.size(), std::size_t{process_count * line_count});
}
#endif

constexpr std::ptrdiff_t host_count = 20;

/// Logs until all others of its kind do.
TEST_F(LogChild, DISABLED_host) {
    say("host");
    const std::filesystem::path folder = child_root() + ".hosts";
    std::filesystem::create_directories(folder);
    std::ofstream(folder / std::to_string(platform::process_id()));
    const auto arrived = [&] { return std::distance(std::filesystem::directory_iterator(folder), {}); };
    for (int i = 0; i < 6000 && arrived() < host_count; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_EQ(arrived(), host_count);
}

TEST(LogSession, OfHostsThatStartTogetherIsALogEach) {
    for (const char* arguments : {"", "-logfile=out/logs/mine.log"}) {
        const TempDirectory folder;
        const std::filesystem::path root = folder / "root";
        std::filesystem::create_directory(root);
        for (const ChildResult& result : run_children(host_count, "LogChild.DISABLED_host", root, arguments))
            EXPECT_EQ(result.exit_code, 0) << result.output;
        std::ptrdiff_t logs = 0;
        for (const auto& item : std::filesystem::recursive_directory_iterator(root)) {
            if (item.is_regular_file() && read_file(item.path().string()).find("> host\r\n") != std::string::npos)
                ++logs;
        }
        EXPECT_EQ(logs, host_count) << arguments;
    }
}

/// The first block of docs/logging.md: what it tells a newcomer to write.
std::string documented_example() {
    std::ifstream guide(ENGINE_LOGGING_GUIDE);
    std::string text;
    for (std::string line; std::getline(guide, line);) {
        if (line.starts_with("        ")) text += line + "\n";
        if (!text.empty() && !line.starts_with("        ")) break;
    }
    return text;
}

TEST(LogSession, LeavesTheLogThatItsSwitchesAndConfigurationAskFor) {
    constexpr const char* nothing = "\x01";
    struct Case {
        const char* child;
        const char* arguments;
        std::size_t files;
        const char* output = "";
        const char* logged = "";
        const char* not_logged = nothing;
        FileTree before = {};
        int exit_code = 0;
    };
    const FileTree configured = {
        {"CrashLog.cfg", "!BrenixLogLevel(W)\r\n!BrenixLogCategoryLevel(Net, V3)\r\n!Permit(CLOG, 0, 1)\r\n"},
        {"other.cfg", "!BrenixLogLevel(Verbose5) !include \"more/shared.cfg\""},
        {"more/shared.cfg", "!BrenixLogCategoryLevel(Net, F)"}};
    const Case cases[] = {
        {"session", "", 1, "level=3 Net=3\nLLOG=1 CLOG=0 WARN=1", "INFO: [Test] > a line\r\n", "after the end"},
        {"session", "-silent", 0, "log=none\nlevel=3"},
        {"session", "-silent -verbose", 1, "level=5"},
        {"session", "--VERBOSE", 1, "LLOG=1 CLOG=3 WARN=3"},
        {"session", "-logfile=out/logs/mine.log", 1, "mine.log\n"},
        {"session", "-logfile=\"<>|?\"", 1, "crash.log\n"},
        {"session", "", 1, "level=4 Net=9\nLLOG=1 CLOG=2", "", nothing, configured},
        {"session", "-logcfg=other.cfg", 1, "level=11 Net=1", "", nothing, configured},
        {"session", "-logcfg=missing.cfg", 1, "level=3 Net=3", "", nothing, configured},
        {"session", "", 1, "level=4", "in detail", "more detail", {{"CrashLog.cfg", documented_example()}}},
        {"session", "", 0, "log=none", "", nothing, {{"out", "a file where the directory should be"}}},
        {"silence", "", 0},
        {"close_late", "", 0},
        {"silence", "-logfile=out/logs/kept.log", 1, "", "", nothing, {{"out/logs/kept.log", ""}}},
        {"full_disk", "", 1, "", "> after\r\n", "lost"},
        {"exit", "", 1, "CrashExit...", "goes on", "still here", {}, 255},
        {"no_root", "", 0, "could not initialize", "", nothing, {}, 255},
        {"console", "", 0, "> seen one"},
        {"taken", "-logfile=out/logs/mine.log", 2, "log=out/logs/mine_", "a line"},
        {"start", "", 1, "", "in time", "too early"},
        {"crowd", "", 1, "", "last"},
    };
    for (const Case& row : cases) {
        SCOPED_TRACE(std::string(row.child) + " " + row.arguments);
        const ChildResult result = run_child(std::string("L*Child.DISABLED_") + row.child, row.arguments, row.before);
        EXPECT_EQ(result.exit_code & 0xFF, row.exit_code) << result.output;
        EXPECT_THAT(result.output, HasSubstr(row.output));
        EXPECT_THAT(result.output, testing::Not(HasSubstr("still here")));
        std::size_t files = 0;
        std::string text;
        for (const auto& [name, log] : result.files) {
            if (!name.ends_with(".log")) continue;
            ++files;
            text += log;
        }
        EXPECT_EQ(files, row.files);
        if (files == 0) continue;
        EXPECT_THAT(text, HasSubstr(row.logged));
        EXPECT_THAT(text, testing::Not(HasSubstr(row.not_logged)));
        std::istringstream lines(text);
        for (std::string line; std::getline(lines, line);) EXPECT_TRUE(line.starts_with("{")) << line;
    }
}

}  // namespace

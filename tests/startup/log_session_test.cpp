// The log starts once in a process, so each of these runs in a child.
#include <gmock/gmock.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <thread>

#include <engine/filesystem/access.h>
#include <engine/filesystem/registry.h>

#include "engine/filesystem/contract/error.h"
#include "engine/filesystem/log/levels.h"
#include "engine/filesystem/log/message.h"
#include "engine/filesystem/registry/registry.h"
#include "engine/platform/error.h"
#include "engine/platform/process.h"
#include "tests/startup/child.h"
#include "tests/support/run_together.h"
#include "tests/support/temp_directory.h"

namespace {

using logging::code;
using testing::HasSubstr;

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

// The crash start-up works once in a process, so each of these runs in a child.
#include <gmock/gmock.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include <engine/filesystem/access.h>
#include <engine/filesystem/log.h>
#include <engine/filesystem/registry.h>
#include <engine/filesystem/startup.h>

#include "engine/filesystem/contract/set_error.h"
#include "engine/filesystem/log/levels.h"
#include "engine/filesystem/registry/registry.h"
#include "engine/platform/faults.h"
#include "engine/platform/process.h"
#include "tests/support/child_process.h"

namespace {

namespace stdfs = std::filesystem;
using testing::HasSubstr;
using testing::Not;

bool start_file_system() {
    return fs::init(child_root().c_str(), FFSAddSourceFlags::RECURSIVE, "", false, false, nullptr);
}

void say(const char* text) {
    _CLog(Log::ELevel::INFO, "Test", nullptr, 0, CLFilterAction::LOGFILE, CLLineMode::NEW_LINE, "%s\n", text);
}

void show_settings() {
    const char* const name = CrashGetLogFileName();
    std::printf("log=%s\n", name == nullptr ? "none" : name);
    std::printf("level=%u Net=%u\n", Log::Settings::Instance().GetLevel(),
                Log::Settings::Instance().GetCategoryLevel("Net"));
    std::printf("LLOG=%u CLOG=%u WARN=%u\n", _CLFilter(logging::code("LLOG")), _CLFilter(logging::code("CLOG")),
                _CLFilter(logging::code("WARN")));
    std::fflush(stdout);
}

TEST(CrashChildren, DISABLED_Session) {
    ASSERT_TRUE(start_file_system());
    CrashInit();
    say("a line");
    show_settings();
    CrashClose();
    EXPECT_EQ(CrashGetLogFileName(), nullptr);
    CrashInit();
    say("after the end");
    EXPECT_EQ(CrashGetLogFileName(), nullptr) << "closed is closed";
    fs::shutdown();
}

TEST(CrashChildren, DISABLED_SessionWithoutLines) {
    ASSERT_TRUE(start_file_system());
    CrashInit();
    show_settings();
    CrashClose();
    fs::shutdown();
}

TEST(CrashChildren, DISABLED_EmptyLogClosedLate) {
    ASSERT_TRUE(start_file_system());
    CrashInit();
    EXPECT_NE(CrashGetLogFileName(), nullptr);
    fs::shutdown();
    CrashClose();
}

TEST(CrashChildren, DISABLED_MessagesBeforeTheFileSystem) {
    say("too early");
    EXPECT_EQ(CrashGetLogFileName(), nullptr);
    std::ofstream("CrashLog.cfg") << "!BrenixLogCategoryLevel(Net, V3)\n";
    say("the configuration is looked for again");
    EXPECT_EQ(Log::Settings::Instance().GetCategoryLevel("Net"), Log::ELevel::VER3);
    ASSERT_TRUE(start_file_system());
    {
        const fs::registry::SharedGuard guard(fs::registry::state());
        say("under the lock");
        EXPECT_EQ(CrashGetLogFileName(), nullptr);
    }
    fs::set_error(EFSError::IN_USE, "mine", "The caller's own failure.");
    say("in time");
    EXPECT_EQ(fs::last_error().code, EFSError::IN_USE) << "opening the log leaves the caller's failure alone";
    show_settings();
    CrashClose();
    fs::shutdown();
}

TEST(CrashChildren, DISABLED_ManyFirstMessages) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            for (int line = 0; line < 200; ++line) say("crowd");
        });
    }
    EXPECT_TRUE(start_file_system());
    say("late");
    for (std::thread& thread : threads) thread.join();
    say("last");
    std::uint32_t errors = 0;
    std::uint32_t warnings = 0;
    CrashGetStats(errors, warnings);
    CrashClose();
    fs::shutdown();
}

int heard = 0;

TEST(CrashChildren, DISABLED_FullDisk) {
    ASSERT_TRUE(start_file_system());
    CrashInit();
    say("before");
    CrashSetPrintCallback([](Log::ELevel::TYPE, const char*, const char*) { ++heard; });
    platform::inject_fault(platform::FaultPoint::WRITE, 1, platform::Failure::DISK_FULL, true);
    fs::clear_error();
    for (int i = 0; i < 100; ++i) say("lost");
    platform::clear_faults();
    EXPECT_EQ(heard, 100);
    EXPECT_EQ(fs::last_error().code, EFSError::NONE);
    say("after");
    CrashClose();
    fs::shutdown();
}

TEST(CrashChildren, DISABLED_FatalExit) {
    ASSERT_TRUE(start_file_system());
    CrashInit();
    _CLog(Log::ELevel::FATL, "EXITS", nullptr, 0, _CLFilter(logging::code("FATL")), CLLineMode::NEW_LINE, "goes on\n");
    _CLog(Log::ELevel::FATL, "EXIT", nullptr, 0, _CLFilter(logging::code("FATL")), CLLineMode::NEW_LINE,
          "the reason is %d\n", 42);
    std::printf("still here\n");
}

TEST(CrashChildren, DISABLED_Console) {
    CrashInit(true);
    EXPECT_EQ(CrashGetConsoleHandle(), platform::standard_output());
    const auto print = [](const char* text) {
        _CLog(Log::ELevel::INFO, "Test", nullptr, 0, CLFilterAction::CONSOLE, CLLineMode::NEW_LINE, "%s\n", text);
    };
    print("seen one");
    CrashDisableOutToConsole();
    EXPECT_EQ(CrashGetConsoleHandle(), nullptr);
    print("hidden");
    CrashInitOutToConsole();
    print("seen two");
}

class CrashSession : public testing::Test {
protected:
    CrashSession() : root_("root") {
        stdfs::remove_all(root_);
        stdfs::create_directories(root_);
    }
    void run(const char* child, const std::string& arguments = "") {
        result_ = run_child(std::string("CrashChildren.DISABLED_") + child, root_, arguments);
        EXPECT_EQ(result_.exit_code, 0) << result_.output;
    }
    void write_file(const std::string& name, const std::string& text) const {
        stdfs::create_directories((root_ / name).parent_path());
        std::ofstream(root_ / name, std::ios::binary) << text;
    }
    /// Name and content of each file below out/logs.
    std::map<std::string, std::string> logs() const {
        std::map<std::string, std::string> found;
        if (!stdfs::exists(root_ / "out/logs")) return found;
        for (const auto& item : stdfs::directory_iterator(root_ / "out/logs")) {
            std::ostringstream text;
            text << std::ifstream(item.path(), std::ios::binary).rdbuf();
            found[item.path().filename().string()] = text.str();
        }
        return found;
    }

    const stdfs::path root_;
    ChildResult result_;
};

TEST_F(CrashSession, WritesAStampedLogFile) {
    run("Session");
    ASSERT_EQ(logs().size(), 1u) << result_.output;
    EXPECT_THAT(logs().begin()->first, testing::MatchesRegex("crash_2......._.........\\.log"));
    EXPECT_THAT(logs().begin()->second, HasSubstr("INFO: [Test] > a line\r\n"));
    EXPECT_THAT(logs().begin()->second, Not(HasSubstr("after the end")));
    EXPECT_THAT(result_.output, HasSubstr("level=3 Net=3"));
    EXPECT_THAT(result_.output, HasSubstr("LLOG=1 CLOG=0 WARN=1"));
}

TEST_F(CrashSession, ObeysItsSwitches) {
    struct Case {
        const char* arguments;
        std::size_t files;
        const char* output;
    };
    const Case cases[] = {
        {"-silent", 0, "log=none\nlevel=3"},
        {"-silent -verbose", 1, "level=5"},
        {"--VERBOSE", 1, "LLOG=1 CLOG=3 WARN=3"},
        {"-silentx x-silent", 1, "level=3"},
        {"-logfile=out/logs/mine.log", 1, "mine.log\n"},
        {"-logfile=\"<>|?\"", 1, "crash.log\n"},
    };
    for (const Case& row : cases) {
        SCOPED_TRACE(row.arguments);
        stdfs::remove_all(root_ / "out");
        run("Session", row.arguments);
        EXPECT_EQ(logs().size(), row.files);
        std::string output = result_.output;
        std::erase(output, '\r');
        EXPECT_THAT(output, HasSubstr(row.output));
    }
}

TEST_F(CrashSession, ReadsItsConfiguration) {
    write_file("CrashLog.cfg", "!BrenixLogLevel(W)\r\n!BrenixLogCategoryLevel(Net, V3)\r\n!Permit(CLOG, 0, 1)\r\n");
    write_file("other.cfg", "!BrenixLogLevel(Verbose5) !include \"more/shared.cfg\"");
    write_file("more/shared.cfg", "!BrenixLogCategoryLevel(Net, F)");
    run("Session");
    EXPECT_THAT(result_.output, HasSubstr("level=4 Net=9"));
    EXPECT_THAT(result_.output, HasSubstr("CLOG=2"));
    run("Session", "-logcfg=other.cfg");
    EXPECT_THAT(result_.output, HasSubstr("level=11 Net=1"));
    run("Session", "-logcfg=missing.cfg");
    EXPECT_THAT(result_.output, HasSubstr("level=3 Net=3"));
}

TEST_F(CrashSession, RemovesALogFileThatStayedEmpty) {
    run("SessionWithoutLines");
    EXPECT_THAT(result_.output, HasSubstr("log="));
    EXPECT_THAT(result_.output, Not(HasSubstr("log=none")));
    EXPECT_EQ(logs().size(), 0u);
    run("EmptyLogClosedLate");
    EXPECT_EQ(logs().size(), 0u) << "after fs::shutdown too";
    write_file("out/logs/kept.log", "");
    run("SessionWithoutLines", "-logfile=out/logs/kept.log");
    EXPECT_EQ(logs().size(), 1u) << "what was there before is not ours to remove";
}

TEST_F(CrashSession, WaitsForTheFileSystem) {
    run("MessagesBeforeTheFileSystem");
    ASSERT_EQ(logs().size(), 1u) << result_.output;
    EXPECT_THAT(logs().begin()->second, HasSubstr("in time"));
    EXPECT_THAT(logs().begin()->second, Not(HasSubstr("too early")));
}

TEST_F(CrashSession, StartsOnceHoweverManyThreadsAskForIt) {
    run("ManyFirstMessages");
    ASSERT_EQ(logs().size(), 1u) << result_.output;
    EXPECT_THAT(logs().begin()->second, HasSubstr("last"));
}

TEST_F(CrashSession, OutlivesAFullDisk) {
    run("FullDisk");
    ASSERT_EQ(logs().size(), 1u);
    EXPECT_THAT(logs().begin()->second, HasSubstr("after"));
    EXPECT_THAT(logs().begin()->second, Not(HasSubstr("lost")));
}

TEST_F(CrashSession, GoesOnWhereNoLogCanBeMade) {
    write_file("out", "a file where the directory should be");
    run("Session");
    EXPECT_THAT(result_.output, HasSubstr("log=none"));
    EXPECT_TRUE(stdfs::is_regular_file(root_ / "out"));
}

TEST_F(CrashSession, AFatalExitEndsTheProcessAfterItWasWritten) {
    const ChildResult result = run_child("CrashChildren.DISABLED_FatalExit", root_);
    EXPECT_EQ(result.exit_code & 0xFF, 255) << result.output;
    ASSERT_EQ(logs().size(), 1u);
    EXPECT_THAT(logs().begin()->second, HasSubstr("goes on"));
    EXPECT_THAT(logs().begin()->second, HasSubstr("the reason is 42"));
    EXPECT_THAT(result.output, HasSubstr("CrashExit...")) << "without a desktop the box is printed";
    EXPECT_THAT(result.output, Not(HasSubstr("still here")));
}

TEST_F(CrashSession, PrintsToTheConsoleWhileItIsOn) {
    run("Console");
    EXPECT_THAT(result_.output, HasSubstr("> seen one"));
    EXPECT_THAT(result_.output, HasSubstr("> seen two"));
    EXPECT_THAT(result_.output, Not(HasSubstr("hidden")));
}

}  // namespace

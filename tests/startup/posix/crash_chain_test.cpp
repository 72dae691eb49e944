#include <gmock/gmock.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>

#include <engine/filesystem/log.h>
#include <engine/filesystem/startup.h>
#include <engine/kernel/multithreading.h>

#include "engine/platform/crash.h"
#include "engine/platform/posix/crash/symbols.h"
#include "tests/startup/use_up_stack.h"
#include "tests/support/child_process.h"

namespace {

void handler_of_the_host(int) {
    constexpr char text[] = "the host's handler\n";
    if (write(STDOUT_FILENO, text, sizeof(text) - 1) < 0) _exit(1);
    _exit(7);
}

EAssertionResult::TYPE always_abort(const smart_assert_data&) { return EAssertionResult::ABORT; }
EAssertionResult::TYPE always_break(const smart_assert_data&) { return EAssertionResult::BREAK; }

void start(int signal_number) {
    std::signal(signal_number, handler_of_the_host);
    ASSERT_TRUE(fs::init(child_root().c_str(), FFSAddSourceFlags::RECURSIVE, "", false, false, nullptr));
    CrashInit();
    ASSERT_TRUE(CrashCatchExceptions(true));
}

TEST(CrashChainChildren, DISABLED_Segv) {
    start(SIGSEGV);
    raise(SIGSEGV);
}

TEST(CrashChainChildren, DISABLED_Abort) {
    start(SIGABRT);
    SetAssertFunc(always_abort);
    SMART_ASSERT(1 == 2);
}

TEST(CrashChainChildren, DISABLED_Break) {
    start(SIGTRAP);
    SetAssertFunc(always_break);
    SMART_ASSERT(1 == 2);
}

TEST(CrashChainChildren, DISABLED_StackOverflow) {
    start(SIGUSR1);
    std::exit(use_up_stack(0) == 0 ? 0 : 1);
}

TEST(CrashChainChildren, DISABLED_StackOverflowOfAThread) {
    start(SIGUSR1);
    mt::CThread thread;
    thread.Start(
        "deep", [](void*) { std::exit(use_up_stack(0) == 0 ? 0 : 1); }, nullptr);
}

int count_reports(const std::filesystem::path& root) {
    int count = 0;
    for (const auto& item : std::filesystem::recursive_directory_iterator(root))
        count += item.path().extension() == ".txt";
    return count;
}

TEST(CrashChain, EveryKindOfCrashIsReportedAndThenLeftToTheHost) {
    for (const char* name : {"Segv", "Abort", "Break"}) {
        std::filesystem::remove_all("root");
        std::filesystem::create_directories("root");
        const ChildResult result = run_child(std::string("CrashChainChildren.DISABLED_") + name, "root");
        EXPECT_EQ(result.exit_code, 7) << name << "\n" << result.output;
        EXPECT_THAT(result.output, testing::HasSubstr("the host's handler")) << name;
        EXPECT_EQ(count_reports("root"), 1) << name;
    }
}

TEST(CrashChain, AStackThatIsUsedUpIsReportedToo) {
    for (const char* name : {"StackOverflow", "StackOverflowOfAThread"}) {
        std::filesystem::remove_all("root");
        std::filesystem::create_directories("root");
        const ChildResult result = run_child(std::string("CrashChainChildren.DISABLED_") + name, "root");
        EXPECT_NE(result.exit_code, 0) << name;
        EXPECT_EQ(count_reports("root"), 1) << name << "\n" << result.output;
    }
}

TEST(CallStack, NamesFunctionsWithoutHelpOfTheLoader) {
    void* frames[4];
    ASSERT_GT(platform::capture_stack(frames, 4, 0), 0);
    char line[512];
    platform::describe_frame(frames[0], line, sizeof(line));
    EXPECT_THAT(line, testing::HasSubstr("NamesFunctionsWithoutHelpOfTheLoader"));
    char tiny[8];
    platform::describe_frame(frames[0], tiny, sizeof(tiny));
    EXPECT_EQ(std::string(tiny).size(), 7u) << "cut, never written past";
    platform::describe_frame(reinterpret_cast<void*>(8), line, sizeof(line));
    EXPECT_STREQ(line, "0x0000000000000008");
}

}  // namespace

#include <gmock/gmock.h>

#include <windows.h>

#include <filesystem>

#include <engine/filesystem/log.h>
#include <engine/filesystem/startup.h>
#include <engine/kernel/multithreading.h>

#include "tests/startup/use_up_stack.h"
#include "tests/support/child_process.h"

namespace {

LONG WINAPI filter_of_the_host(EXCEPTION_POINTERS*) {
    constexpr char text[] = "the host's filter\n";
    DWORD written = 0;
    WriteFile(GetStdHandle(STD_OUTPUT_HANDLE), text, sizeof(text) - 1, &written, nullptr);
    TerminateProcess(GetCurrentProcess(), 7);
    return EXCEPTION_CONTINUE_SEARCH;
}

void start() {
    SetUnhandledExceptionFilter(filter_of_the_host);
    ASSERT_TRUE(fs::init(child_root().c_str(), FFSAddSourceFlags::RECURSIVE, "", false, false, nullptr));
    CrashInit();
    ASSERT_TRUE(CrashCatchExceptions(true));
}

TEST(CrashChainChildren, DISABLED_Fault) {
    start();
    RaiseException(EXCEPTION_ACCESS_VIOLATION, 0, 0, nullptr);
}

TEST(CrashChainChildren, DISABLED_StackOverflow) {
    start();
    ExitProcess(use_up_stack(0) == 0 ? 0 : 1);
}

TEST(CrashChainChildren, DISABLED_StackOverflowOfAThread) {
    start();
    mt::CThread thread;
    thread.Start(
        "deep", [](void*) { ExitProcess(use_up_stack(0) == 0 ? 0 : 1); }, nullptr);
}

int count_dumps(const std::filesystem::path& root) {
    int count = 0;
    for (const auto& item : std::filesystem::recursive_directory_iterator(root))
        count += item.path().extension() == ".dmp" && item.file_size() > 0;
    return count;
}

TEST(CrashChain, EveryKindOfCrashIsReportedAndThenLeftToTheHost) {
    for (const char* name : {"Fault", "StackOverflow", "StackOverflowOfAThread"}) {
        std::filesystem::remove_all("root");
        std::filesystem::create_directories("root");
        const ChildResult result = run_child(std::string("CrashChainChildren.DISABLED_") + name, "root");
        EXPECT_EQ(result.exit_code, 7) << name << "\n" << result.output;
        EXPECT_THAT(result.output, testing::HasSubstr("the host's filter")) << name;
        EXPECT_EQ(count_dumps("root"), 1) << name;
    }
}

}  // namespace

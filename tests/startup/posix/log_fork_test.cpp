// A host that forks while it logs.
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <set>
#include <sstream>

#include "tests/startup/child.h"

namespace {

constexpr int process_count = 20;
constexpr int line_count = 200;

TEST(LogForkChild, DISABLED_Run) {
    ASSERT_TRUE(start_file_system());
    CrashInit();
    for (int process = 0; process < process_count; ++process) {
        if (fork() != 0) continue;
        for (int i = 0; i < line_count; ++i) say("line " + std::to_string(i) + " of " + std::to_string(process));
        _exit(0);
    }
    for (int status = 0; wait(&status) > 0;) EXPECT_EQ(status, 0);
    CrashClose();
}

TEST(LogFork, KeepsEveryLineOfEveryProcess) {
    const ChildResult result = run_child("LogForkChild.DISABLED_Run");
    EXPECT_EQ(result.exit_code, 0) << result.output;
    ASSERT_EQ(result.files.size(), 1u);
    std::istringstream lines(result.files.begin()->second);
    std::set<std::string> found;
    for (std::string line; std::getline(lines, line);) found.insert(line.substr(line.find('>')));
    EXPECT_EQ(found.size(), std::size_t{process_count * line_count});
}

}  // namespace

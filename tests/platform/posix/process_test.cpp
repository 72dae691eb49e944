#include "engine/platform/process.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <string>

namespace platform {
namespace {

TEST(PosixProcess, WritesEverythingToAPipeThatIsFullForAWhile) {
    int ends[2];
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0);
    ::fcntl(ends[0], F_SETFL, 0);
    const std::string text(1 << 20, 'x');  // many times what a pipe holds
    const pid_t child = ::fork();
    if (child == 0) {
        write_console(&ends[1], text.data(), text.size());
        ::_exit(0);
    }
    ::close(ends[1]);
    std::size_t received = 0;
    char buffer[4096];
    for (ssize_t got = 0; (got = ::read(ends[0], buffer, sizeof buffer)) > 0;) {
        received += static_cast<std::size_t>(got);
    }
    ::close(ends[0]);
    ::waitpid(child, nullptr, 0);
    EXPECT_EQ(received, text.size());
}

TEST(PosixProcess, SurvivesAPipeThatNobodyReadsAnyMore) {
    int ends[2];
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    ::close(ends[0]);
    write_console(&ends[1], "lost", 4);
    ::close(ends[1]);
    sigset_t pending;
    ::sigpending(&pending);
    EXPECT_EQ(::sigismember(&pending, SIGPIPE), 0);
}

TEST(PosixProcessDeathTest, HasNoStandardOutputAfterItWasClosedAndEndsAtOnceWithTheLowEightBitsOfItsCode) {
    const auto close_output_and_exit = [] {
        std::atexit([] { std::_Exit(1); });
        ::close(STDOUT_FILENO);
        exit_process(standard_output() == nullptr ? -1 : 0);
    };
    EXPECT_EXIT(close_output_and_exit(), testing::ExitedWithCode(255), "");
}

}  // namespace
}  // namespace platform

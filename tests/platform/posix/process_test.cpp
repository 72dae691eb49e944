#include "engine/platform/process.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <string>
#include <thread>

#include "tests/support/temp_directory.h"

namespace platform {
namespace {

TEST(PosixProcess, WritesEverythingToAPipeThatIsFullForAWhileAndSurvivesOneThatNobodyReads) {
    int ends[2];
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0);
    const std::string text(1 << 20, 'x');  // many times what a pipe holds
    std::thread writer([&] {
        write_console(&ends[1], text.data(), text.size());
        ::close(ends[1]);
    });
    EXPECT_TRUE(read_file("/dev/fd/" + std::to_string(ends[0])) == text);
    writer.join();
    ::close(ends[0]);

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

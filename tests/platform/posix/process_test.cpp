#include "engine/platform/process.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <csignal>
#include <string>

namespace platform {
namespace {

// Puts another descriptor, or none, in the place of standard output.
class OutputReplaced {
public:
    explicit OutputReplaced(int descriptor) : saved_(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3)) {
        if (descriptor >= 0) dup2(descriptor, STDOUT_FILENO);
        if (descriptor < 0) close(STDOUT_FILENO);
    }
    OutputReplaced(const OutputReplaced&) = delete;
    OutputReplaced& operator=(const OutputReplaced&) = delete;
    ~OutputReplaced() {
        dup2(saved_, STDOUT_FILENO);
        close(saved_);
    }

private:
    int saved_;
};

TEST(PosixProcess, SurvivesAPipeThatNobodyReadsAnyMore) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    close(ends[0]);
    sigset_t pending;
    {
        const OutputReplaced output(ends[1]);
        write_console(standard_output(), "lost", 4);
    }
    close(ends[1]);
    sigpending(&pending);
    EXPECT_EQ(sigismember(&pending, SIGPIPE), 0);
}

TEST(PosixProcess, WritesEverythingToAPipeThatIsFullForAWhile) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0);
    fcntl(ends[0], F_SETFL, 0);
    const std::string text(1 << 20, 'x');  // many times what a pipe holds
    std::string received;
    const pid_t child = fork();
    if (child == 0) {
        dup2(ends[1], STDOUT_FILENO);
        write_console(standard_output(), text.data(), text.size());
        _exit(0);
    }
    close(ends[1]);
    char buffer[4096];
    for (ssize_t got = 0; (got = read(ends[0], buffer, sizeof buffer)) > 0;) {
        received.append(buffer, static_cast<std::size_t>(got));
    }
    close(ends[0]);
    EXPECT_EQ(received.size(), text.size());
}

TEST(PosixProcess, HasNoStandardOutputAfterItWasClosed) {
    const OutputReplaced output(-1);
    EXPECT_EQ(standard_output(), nullptr);
}

TEST(PosixProcess, JoinsItsArgumentsByBlanks) {
    std::string joined;
    for (const std::string& argument : testing::internal::GetArgvs()) joined += (joined.empty() ? "" : " ") + argument;
    EXPECT_EQ(command_line(), joined);
}

TEST(PosixProcessDeathTest, ExitCodesAreTheirLowEightBits) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(exit_process(-1), testing::ExitedWithCode(255), "");
}

}  // namespace
}  // namespace platform

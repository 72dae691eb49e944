#include "engine/platform/process.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <filesystem>
#include <string>

namespace platform {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

TEST(Process, KnowsWhereItsExecutableLies) {
    const std::string directory = executable_directory();
    const std::string path = executable_path();
    EXPECT_THAT(directory, EndsWith("/"));
    EXPECT_THAT(directory, Not(HasSubstr("\\")));
    EXPECT_THAT(path, StartsWith(directory));
    EXPECT_TRUE(std::filesystem::is_regular_file(path)) << path;
    const std::string name = std::filesystem::path(path).stem().string();
    EXPECT_THAT(command_line(), HasSubstr(name));
}

TEST(ProcessDeathTest, EndsWithTheGivenCodeAndRunsNothingElse) {
    const auto run_and_exit = [] {
        std::atexit([] { std::_Exit(1); });
        exit_process(7);
    };
    EXPECT_EXIT(run_and_exit(), testing::ExitedWithCode(7), "");
}

TEST(Process, PrintsAMessageThatNobodyCouldAnswer) {
#ifdef _WIN32
    if (std::getenv("WINEPREFIX") == nullptr) GTEST_SKIP() << "a real desktop would show the box and wait";
#endif
    constexpr std::uint32_t abort_retry_ignore = 0x2;
    testing::internal::CaptureStderr();
    const Answer answer = show_message("the disk is gone", "Assertion", abort_retry_ignore, Answer::CARRY_ON);
    const std::string printed = testing::internal::GetCapturedStderr();
    EXPECT_EQ(answer, Answer::CARRY_ON);
    EXPECT_THAT(printed, HasSubstr("the disk is gone"));
    EXPECT_THAT(printed, HasSubstr("Assertion"));
}

TEST(Process, WritesToARedirectedStandardOutput) {
    const std::string line(100'000, 'x');
    testing::internal::CaptureStdout();
    void* const output = standard_output();
    write_console(output, line.data(), line.size());
    write_console(nullptr, line.data(), line.size());
    const std::string written = testing::internal::GetCapturedStdout();
    EXPECT_NE(output, nullptr);
    EXPECT_EQ(written, line);
}

}  // namespace
}  // namespace platform

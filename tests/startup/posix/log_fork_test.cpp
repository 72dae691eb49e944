// Processes that log at once: hosts started together, and a host that forks.
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <set>
#include <sstream>

#include "tests/startup/child.h"

namespace {

constexpr int process_count = 20;
constexpr int line_count = 200;

/// What several processes pass when the last of them has come: each has an end to close, and reading ends when all have.
class Gate {
public:
    Gate() { EXPECT_EQ(pipe(ends_), 0); }
    void Arrive() { close(ends_[1]); }
    void Pass() {
        Arrive();
        char token = 0;
        static_cast<void>(!read(ends_[0], &token, 1));
    }

private:
    int ends_[2];
};

/// Runs `work` in processes that all begin when the last is there, and end when the last has done it.
template <class Work, class Finish>
void run_in_processes(Work work, Finish finish) {
    Gate begin;
    Gate end;
    for (int i = 0; i < process_count; ++i) {
        if (fork() != 0) continue;
        begin.Pass();
        work(std::to_string(i));
        end.Pass();
        finish();
        _exit(0);
    }
    begin.Arrive();
    end.Arrive();
    for (int status = 0; wait(&status) > 0;) EXPECT_EQ(status, 0);
}

TEST(LogForkChild, DISABLED_Hosts) {
    const auto host = [](const std::string& name) {
        if (!start_file_system()) _exit(1);
        CrashInit();
        say("host " + name);
    };
    run_in_processes(host, CrashClose);
}

TEST(LogForkChild, DISABLED_Forks) {
    ASSERT_TRUE(start_file_system());
    CrashInit();
    const auto many_lines = [](const std::string& name) {
        for (int i = 0; i < line_count; ++i) say("line " + std::to_string(i) + " of " + name);
    };
    run_in_processes(many_lines, [] {});
    CrashClose();
}

TEST(LogProcesses, HostsStartedTogetherHaveALogEach) {
    for (const char* arguments : {"", "-logfile=out/logs/mine.log"}) {
        const ChildResult result = run_child("LogForkChild.DISABLED_Hosts", arguments);
        EXPECT_EQ(result.exit_code, 0) << result.output;
        EXPECT_EQ(result.files.size(), std::size_t{process_count}) << arguments;
        for (const auto& [name, text] : result.files) EXPECT_THAT(text, testing::HasSubstr("> host ")) << name;
    }
}

TEST(LogProcesses, AForkedHostKeepsEveryLine) {
    const ChildResult result = run_child("LogForkChild.DISABLED_Forks");
    EXPECT_EQ(result.exit_code, 0) << result.output;
    ASSERT_EQ(result.files.size(), 1u);
    std::istringstream lines(result.files.begin()->second);
    std::set<std::string> found;
    for (std::string line; std::getline(lines, line);) found.insert(line.substr(line.find('>')));
    EXPECT_EQ(found.size(), std::size_t{process_count * line_count});
}

}  // namespace

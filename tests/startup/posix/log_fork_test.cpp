// Processes that log at once: hosts started together, and a host that forks.
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include <engine/filesystem/log.h>
#include <engine/filesystem/startup.h>

#include "tests/support/child_process.h"

namespace {

constexpr int process_count = 20;
constexpr int line_count = 200;

void say(const std::string& text) {
    _CLog(Log::ELevel::INFO, "Test", nullptr, 0, CLFilterAction::LOGFILE, CLLineMode::NEW_LINE, "%s\n", text.c_str());
}

void start() {
    ASSERT_TRUE(fs::init(child_root().c_str(), FFSAddSourceFlags::RECURSIVE, "", false, false, nullptr));
    CrashInit();
}

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

/// Runs `work` in processes that all begin when the last is there, and end when the last has done it; true when all end
/// well.
template <class Work, class Finish>
bool in_processes(Work work, Finish finish) {
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
    bool all_well = true;
    for (int status = 0; wait(&status) > 0;) all_well = all_well && status == 0;
    return all_well;
}

TEST(LogForkChild, DISABLED_Hosts) {
    const auto host = [](const std::string& name) {
        start();
        say("host " + name);
    };
    EXPECT_TRUE(in_processes(host, [] { CrashClose(); }));
}

TEST(LogForkChild, DISABLED_Forks) {
    start();
    const auto many_lines = [](const std::string& name) {
        for (int i = 0; i < line_count; ++i) say("line " + std::to_string(i) + " of " + name);
    };
    EXPECT_TRUE(in_processes(many_lines, [] {}));
    CrashClose();
}

std::map<std::string, std::string> run(const char* child, const char* arguments) {
    std::filesystem::remove_all("root");
    std::filesystem::create_directories("root");
    const ChildResult result = run_child(child, "root", arguments);
    EXPECT_EQ(result.exit_code, 0) << result.output;
    std::map<std::string, std::string> logs;
    for (const auto& item : std::filesystem::recursive_directory_iterator("root")) {
        if (!item.is_regular_file()) continue;
        std::ostringstream text;
        text << std::ifstream(item.path()).rdbuf();
        logs[item.path().filename().string()] = text.str();
    }
    return logs;
}

TEST(LogProcesses, HostsStartedTogetherHaveALogEach) {
    for (const char* arguments : {"", "-logfile=out/logs/mine.log"}) {
        const auto logs = run("LogForkChild.DISABLED_Hosts", arguments);
        EXPECT_EQ(logs.size(), std::size_t{process_count}) << arguments;
        for (const auto& [name, text] : logs) EXPECT_THAT(text, testing::HasSubstr("> host ")) << name;
    }
}

TEST(LogProcesses, AForkedHostKeepsEveryLine) {
    const auto logs = run("LogForkChild.DISABLED_Forks", "");
    ASSERT_EQ(logs.size(), 1u);
    std::istringstream lines(logs.begin()->second);
    std::set<std::string> found;
    for (std::string line; std::getline(lines, line);) found.insert(line.substr(line.find('>')));
    EXPECT_EQ(found.size(), std::size_t{process_count * line_count});
}

}  // namespace

// A host that forks: its children log into its file.
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <set>
#include <sstream>

#include <engine/filesystem/log.h>
#include <engine/filesystem/startup.h>

#include "tests/support/child_process.h"
#include "tests/support/whole_file.h"

namespace {

constexpr int process_count = 20;
constexpr int line_count = 200;

TEST(LogForkChild, DISABLED_Run) {
    ASSERT_TRUE(fs::init(child_root().c_str(), FFSAddSourceFlags::RECURSIVE, "", false, false, nullptr));
    CrashInit();
    _CLog(Log::ELevel::INFO, "Test", nullptr, 0, CLFilterAction::LOGFILE, CLLineMode::NEW_LINE, "first\n");
    int gate[2];  // reading ends when all have closed their writing end
    ASSERT_EQ(pipe(gate), 0);
    for (int process = 0; process < process_count; ++process) {
        if (fork() != 0) continue;
        close(gate[1]);
        char token = 0;
        static_cast<void>(!read(gate[0], &token, 1));
        for (int i = 0; i < line_count; ++i)
            _CLog(Log::ELevel::INFO, "Test", nullptr, 0, CLFilterAction::LOGFILE, CLLineMode::NEW_LINE,
                  "line %d of %d\n", i, process);
        _exit(0);
    }
    close(gate[1]);
    for (int status = 0; wait(&status) > 0;) EXPECT_EQ(status, 0);
    CrashClose();
}

TEST(LogFork, KeepsEveryLineOfEveryProcess) {
    std::filesystem::create_directories("root");
    const ChildResult result = run_child("LogForkChild.DISABLED_Run", "root");
    EXPECT_EQ(result.exit_code, 0) << result.output;
    std::set<std::string> found;
    for (const auto& item : std::filesystem::recursive_directory_iterator("root")) {
        if (!item.is_regular_file()) continue;
        std::istringstream lines(read_file(item.path().string()));
        for (std::string line; std::getline(lines, line);) found.insert(line.substr(line.find('>')));
    }
    EXPECT_EQ(found.size(), std::size_t{process_count * line_count + 1});
}

}  // namespace

// Hosts that are started together and log at once.
#include <gmock/gmock.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

#include "engine/platform/process.h"
#include "tests/startup/child.h"
#include "tests/support/temp_directory.h"

namespace {

namespace stdfs = std::filesystem;

constexpr std::ptrdiff_t host_count = 20;

/// Waits until all hosts have come here.
void meet(const char* place) {
    const stdfs::path folder = child_root() + "." + place;
    stdfs::create_directories(folder);
    std::ofstream(folder / std::to_string(platform::process_id()));
    const auto arrived = [&] { return std::distance(stdfs::directory_iterator(folder), {}); };
    for (int i = 0; i < 6000 && arrived() < host_count; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_EQ(arrived(), host_count);
}

TEST(LogHostChild, DISABLED_Run) {
    meet("begin");
    ASSERT_TRUE(start_file_system());
    CrashInit();
    say("host " + std::to_string(platform::process_id()));
    meet("end");
    CrashClose();
}

TEST(LogHosts, StartedTogetherHaveALogEach) {
    int round = 0;
    for (const char* arguments : {"", "-logfile=out/logs/mine.log"}) {
        const stdfs::path root = "root" + std::to_string(round++);
        stdfs::create_directories(root);
        for (const ChildResult& result : run_children(host_count, "LogHostChild.DISABLED_Run", root, arguments))
            EXPECT_EQ(result.exit_code, 0) << result.output;
        std::ptrdiff_t logs = 0;
        for (const auto& item : stdfs::recursive_directory_iterator(root)) {
            if (!item.is_regular_file()) continue;
            EXPECT_THAT(read_file(item.path().string()), testing::HasSubstr("> host ")) << item.path();
            ++logs;
        }
        EXPECT_EQ(logs, host_count) << arguments;
    }
}

}  // namespace

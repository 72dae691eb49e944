// Children that crash, and what they leave: one table for both systems.
#include <gmock/gmock.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <set>
#include <sstream>
#include <thread>

#include <engine/filesystem/contract.h>
#include <engine/filesystem/log.h>
#include <engine/filesystem/startup.h>
#include <engine/kernel/multithreading.h>

#include "engine/filesystem/startup/log/switches.h"
#include "engine/platform/process.h"
#include "tests/startup/crash_host.h"
#include "tests/startup/use_up_stack.h"
#include "tests/support/child_process.h"

namespace {

namespace stdfs = std::filesystem;
using testing::HasSubstr;

#ifdef _WIN32
constexpr bool is_minidump = true;
#else
constexpr bool is_minidump = false;
#endif

// Not null, which the undefined-behaviour sanitizer would end the process for before the system does.
volatile int* volatile nowhere = reinterpret_cast<volatile int*>(16);

// Threads that crash here together race on purpose; the thread sanitizer would lock itself up while it tells of both.
__attribute__((noinline, no_sanitize("thread"))) void crash_on_purpose() {
    *nowhere = 1;
    std::printf("still here\n");  // keeps the call above from being the last one
}

void fail_assertion(EAssertionResult::TYPE (*answer)(const smart_assert_data&)) {
    SetAssertFunc(answer);
    SMART_ASSERT(1 == 2);
}

void crash_in_many_threads() {
    std::atomic<int> waiting{4};
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            --waiting;
            while (waiting != 0) std::this_thread::yield();
            crash_on_purpose();
        });
    }
    for (std::thread& thread : threads) thread.join();
}

void dump_running_process() {
    EXPECT_TRUE(CrashCatchExceptions(false));
    for (int i = 0; i < 5; ++i) EXPECT_TRUE(GenerateDump()) << "two in one millisecond, too";
    const std::string named = child_root() + "/full.dump";
    EXPECT_TRUE(WriteFullDump(named.c_str()));
    EXPECT_FALSE(WriteFullDump(named.c_str())) << "nothing is overwritten";
    EXPECT_EQ(fs::last_error().code, EFSError::ALREADY_EXISTS);
    EXPECT_FALSE(GenerateDump((child_root() + "/missing/dump").c_str()));
    EXPECT_EQ(fs::last_error().code, EFSError::NOT_FOUND);
    EXPECT_FALSE(GenerateDump(std::string(5000, 'x').c_str()));
    EXPECT_EQ(fs::last_error().code, EFSError::INVALID_NAME);
    CrashClose();
    fs::shutdown();
}

const std::map<std::string, std::function<void()>> scenarios = {
    {"fault", crash_on_purpose},
    {"abort", [] { fail_assertion([](const smart_assert_data&) { return EAssertionResult::ABORT; }); }},
    {"break", [] { fail_assertion([](const smart_assert_data&) { return EAssertionResult::BREAK; }); }},
    {"deep", [] { std::exit(use_up_stack(0) == 0 ? 0 : 1); }},
    {"deep_thread",
     [] {
         mt::CThread thread;
         thread.Start(
             "deep", [](void*) { std::exit(use_up_stack(0) == 0 ? 0 : 1); }, nullptr);
     }},
    {"many_threads", crash_in_many_threads},
    {"chained",
     [] {
         install_host_handler(true);
         EXPECT_TRUE(CrashCatchExceptions(true));
         crash_on_purpose();
     }},
    {"switched_off",
     [] {
         EXPECT_TRUE(CrashCatchExceptions(false));
         crash_on_purpose();
     }},
    {"running", dump_running_process},
};

TEST(CrashChild, DISABLED_Run) {
    if (crash::has_switch(platform::command_line(), "host")) install_host_handler(false);
    ASSERT_TRUE(fs::init(child_root().c_str(), FFSAddSourceFlags::RECURSIVE, "", false, false, nullptr));
    CrashInit();
    _CLog(Log::ELevel::INFO, "Test", nullptr, 0, CLFilterAction::LOGFILE, CLLineMode::NEW_LINE, "the last line\n");
    ASSERT_TRUE(CrashCatchExceptions(true));
    scenarios.at (*crash::option_value(platform::command_line(), "scenario="))();
}

/// The dumps that a child left beside its log.
std::vector<std::string> dumps(const stdfs::path& root) {
    std::vector<std::string> found;
    for (const auto& item : stdfs::recursive_directory_iterator(root)) {
        const std::string ending = item.path().extension().string();
        if (ending != ".dmp" && ending != ".txt" && ending != ".dump") continue;
        std::ostringstream text;
        text << std::ifstream(item.path(), std::ios::binary).rdbuf();
        found.push_back(text.str());
    }
    return found;
}

std::uint32_t read_u32(const std::string& bytes, std::size_t offset) {
    std::uint32_t value = 0;
    if (offset + 4 <= bytes.size()) std::memcpy(&value, bytes.data() + offset, 4);
    return value;
}

/// The kinds of streams that a minidump holds, each of them inside the file; empty for what is no minidump.
std::set<std::uint32_t> minidump_streams(const std::string& dump) {
    std::set<std::uint32_t> kinds;
    if (!dump.starts_with("MDMP")) return kinds;
    for (std::uint32_t i = 0; i < read_u32(dump, 8); ++i) {
        const std::size_t entry = read_u32(dump, 12) + i * 12u;
        const std::uint64_t end = std::uint64_t{read_u32(dump, entry + 4)} + read_u32(dump, entry + 8);
        if (end <= dump.size()) kinds.insert(read_u32(dump, entry));
    }
    return kinds;
}

void check_minidump(const std::string& dump, bool of_a_crash) {
    constexpr std::uint32_t thread_list = 3, module_list = 4, exception = 6, system_info = 7, comment = 10;
    EXPECT_THAT(minidump_streams(dump), testing::IsSupersetOf({thread_list, module_list, system_info, comment}));
    EXPECT_EQ(minidump_streams(dump).count(exception), of_a_crash ? 1u : 0u);
}

void check_report(const std::string& report, bool of_a_crash, const char* signal) {
    const auto at = [&](const char* text) { return report.find(text); };
    EXPECT_THAT(report, HasSubstr(signal));
    if (of_a_crash) EXPECT_LT(at("\nRegisters\n"), at("\nBack-trace"));
    EXPECT_LT(at(" engine_tests+0x"), at("\nMappings\n"));
    EXPECT_LT(at("libc.so"), at("\nLast log lines\n"));
    EXPECT_THAT(report, testing::EndsWith("End of report\n"));
}

TEST(Crash, EachKindLeavesOneWholeAccountAndEndsTheProcessAsBefore) {
    constexpr int by_itself = -1;  // as the system ends it
    struct Case {
        const char* scenario;
        const char* arguments;
        int exit_code;
        std::size_t dump_count;
        const char* signal;  // in a report of Linux
    };
    const Case cases[] = {
        {"fault", "", by_itself, 1, "SIGSEGV"},
        {"fault", "-host", 7, 1, "SIGSEGV"},
        {"abort", "", by_itself, 1, "SIGABRT"},
        {"break", "", by_itself, 1, "SIGTRAP"},
        // Over a used-up stack Wine hangs behind our handler, or ends the thread alone, with its debugger and without.
        {"deep", is_minidump ? "-host" : "", is_minidump ? 7 : by_itself, 1, "SIGSEGV"},
        {"deep_thread", is_minidump ? "-host" : "", is_minidump ? 7 : by_itself, 1, "SIGSEGV"},
        {"many_threads", "", by_itself, 1, "SIGSEGV"},
        {"chained", "", by_itself, 1, "SIGSEGV"},
        {"chained", "-host", 7, 1, "SIGSEGV"},
        {"switched_off", "", by_itself, 0, ""},
        {"running", "", 0, 6, "Report of a running process"},
    };
    for (const Case& row : cases) {
        SCOPED_TRACE(std::string(row.scenario) + row.arguments);
        stdfs::remove_all("root");
        stdfs::create_directories("root");
        const ChildResult result = run_child("CrashChild.DISABLED_Run", "root",
                                             std::string("-scenario=") + row.scenario + " " + row.arguments);
        if (row.exit_code != by_itself) EXPECT_EQ(result.exit_code, row.exit_code) << result.output;
        if (row.exit_code == by_itself) EXPECT_THAT(result.exit_code, testing::Not(testing::AnyOf(0, 7, 99)));
        EXPECT_THAT(result.output, testing::Not(HasSubstr("still here")));
        EXPECT_EQ(result.output.find("the host's handler") != std::string::npos, row.exit_code == 7);
        const auto found = dumps("root");
        ASSERT_EQ(found.size(), row.dump_count) << result.output;
        for (const std::string& dump : found) {
            const bool of_a_crash = row.exit_code != 0;
            is_minidump ? check_minidump(dump, of_a_crash) : check_report(dump, of_a_crash, row.signal);
            EXPECT_THAT(dump, HasSubstr("the last line"));
        }
    }
}

}  // namespace

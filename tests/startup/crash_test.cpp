// Children that crash, and what they leave: one table for both systems.
#include <gmock/gmock.h>

#include <cstdio>
#include <cstdlib>

#include <engine/filesystem/contract.h>
#include <engine/kernel/multithreading.h>

#include "engine/filesystem/startup/log.h"
#include "engine/platform/process.h"
#include "tests/startup/child.h"
#include "tests/support/run_together.h"

namespace {

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

// Without an end on purpose.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winfinite-recursion"
[[gnu::noinline]] int use_up_stack(int depth) {
    if (depth < 0) return 0;
    volatile char block[4096];
    block[0] = static_cast<char>(depth);
    return use_up_stack(depth + 1) + block[0];
}
#pragma GCC diagnostic pop

class CrashChild : public testing::Test {
protected:
    void SetUp() override {
        if (crash::has_switch(platform::command_line(), "host")) install_host_handler(false);
        ASSERT_TRUE(start_file_system());
        CrashInit();
        say("the last line");
        ASSERT_TRUE(CrashCatchExceptions(true));
    }
};

TEST_F(CrashChild, DISABLED_fault) { crash_on_purpose(); }
TEST_F(CrashChild, DISABLED_abort) {
    SetAssertFunc([](const smart_assert_data&) { return EAssertionResult::ABORT; });
    SMART_ASSERT(1 == 2);
}
TEST_F(CrashChild, DISABLED_break) {
    SetAssertFunc([](const smart_assert_data&) { return EAssertionResult::BREAK; });
    SMART_ASSERT(1 == 2);
}
TEST_F(CrashChild, DISABLED_deep) { std::exit(use_up_stack(0)); }
TEST_F(CrashChild, DISABLED_deep_thread) {
    mt::CThread thread;
    thread.Start(
        "deep", [](void*) { std::exit(use_up_stack(0)); }, nullptr);
}
TEST_F(CrashChild, DISABLED_many_threads) {
    run_together(4, [](std::size_t) { crash_on_purpose(); });
}
TEST_F(CrashChild, DISABLED_chained) {
    install_host_handler(true);
    EXPECT_TRUE(CrashCatchExceptions(true));
    crash_on_purpose();
}
TEST_F(CrashChild, DISABLED_switched_off) {
    EXPECT_TRUE(CrashCatchExceptions(false));
    crash_on_purpose();
}
TEST_F(CrashChild, DISABLED_running) {
    EXPECT_TRUE(CrashCatchExceptions(false));
    EXPECT_THAT(CreateDumpFilename(), testing::StartsWith("out/logs/crash_20"));
    for (int i = 0; i < 5; ++i) EXPECT_TRUE(GenerateDump()) << "two in one millisecond, too";
    const std::string named = child_root() + "/full.dump";
    EXPECT_TRUE(WriteFullDump(named.c_str()));
    const std::pair<std::string, EFSError::TYPE> failures[] = {{named, EFSError::ALREADY_EXISTS},
                                                               {child_root() + "/missing/dump", EFSError::NOT_FOUND},
                                                               {std::string(5000, 'x'), EFSError::INVALID_NAME}};
    for (const auto& [name, code] : failures) {
        EXPECT_FALSE(WriteFullDump(name.c_str()));
        EXPECT_EQ(fs::last_error().code, code);
    }
    CrashClose();
    fs::shutdown();
}

/// Of a minidump, whose streams the system writes as it is told.
bool has_exception(const std::string& dump) {
    constexpr std::uint32_t exception = 6;
    std::uint32_t head[4] = {};  // a mark, a version, how many streams there are, and where they are listed
    dump.copy(reinterpret_cast<char*>(head), sizeof head);
    for (std::uint32_t i = 0; i < head[2]; ++i) {
        std::uint32_t kind = 0;
        dump.copy(reinterpret_cast<char*>(&kind), sizeof kind, head[3] + i * 12);
        if (kind == exception) return true;
    }
    return false;
}

void check_dump(const std::string& dump, bool of_a_crash, const char* signal) {
    EXPECT_THAT(dump, HasSubstr("the last line"));
    if (is_minidump) {
        EXPECT_THAT(dump, testing::StartsWith("MDMP"));
        EXPECT_EQ(has_exception(dump), of_a_crash);
        return;
    }
    const auto at = [&](const char* text) { return dump.find(text); };
    EXPECT_THAT(dump, HasSubstr(signal));
    if (of_a_crash) EXPECT_LT(at("\nRegisters\n"), at("\nBack-trace"));
    EXPECT_LT(at(" engine_tests+0x"), at("\nMappings\n"));
    EXPECT_LT(at("libc.so"), at("\nLast log lines\n"));
    EXPECT_THAT(dump, testing::EndsWith("End of report\n"));
}

TEST(Crash, EachKindLeavesOneWholeAccountAndEndsTheProcessAsBefore) {
    constexpr int by_itself = -1;  // as the system ends it
    struct Case {
        const char* child;
        const char* arguments;
        int exit_code;
        std::size_t dump_count;
        const char* signal;  // in a report of Linux
        const char* folder = "out/logs/";
    };
    const Case cases[] = {
        {"fault", "", by_itself, 1, "SIGSEGV"},
        {"fault", "-host -logfile=logs/of/mine.log", 7, 1, "SIGSEGV", "logs/of/"},
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
        SCOPED_TRACE(std::string(row.child) + row.arguments);
        const ChildResult result = run_child(std::string("CrashChild.DISABLED_") + row.child, row.arguments);
        if (row.exit_code != by_itself) EXPECT_EQ(result.exit_code, row.exit_code) << result.output;
        if (row.exit_code == by_itself) EXPECT_THAT(result.exit_code, testing::Not(testing::AnyOf(0, 7, 99)));
        EXPECT_THAT(result.output, testing::Not(HasSubstr("still here")));
        EXPECT_EQ(result.output.find("the host's handler") != std::string::npos, row.exit_code == 7);
        std::size_t dump_count = 0;
        for (const auto& [name, bytes] : result.files) {
            if (name.ends_with(".log")) {
                EXPECT_THAT(bytes, HasSubstr("the last line")) << "what was said is on the disk";
                continue;
            }
            ++dump_count;
            const std::string stamped = std::string(row.folder) + "crash_20......_.........";
            if (name != "full.dump") EXPECT_THAT(name, testing::ContainsRegex(stamped));
            check_dump(bytes, row.exit_code != 0, row.signal);
        }
        EXPECT_EQ(dump_count, row.dump_count) << result.output;
    }
}

}  // namespace

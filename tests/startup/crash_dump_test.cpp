// Children that crash, and what they leave.
#include <gmock/gmock.h>

#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include <engine/filesystem/log.h>
#include <engine/filesystem/startup.h>

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

[[gnu::noinline]] void crash_on_purpose() {
    *nowhere = 1;
    std::printf("still here\n");  // keeps the call above from being the last one
}

void start_logging() {
    ASSERT_TRUE(fs::init(child_root().c_str(), FFSAddSourceFlags::RECURSIVE, "", false, false, nullptr));
    CrashInit();
    _CLog(Log::ELevel::INFO, "Test", nullptr, 0, CLFilterAction::LOGFILE, CLLineMode::NEW_LINE, "the last line\n");
}

TEST(CrashDumpChildren, DISABLED_Crash) {
    start_logging();
    ASSERT_TRUE(CrashCatchExceptions(true));
    crash_on_purpose();
    std::fflush(stdout);  // not reached; keeps the call above from becoming a jump, which would leave no frame here
}

EAssertionResult::TYPE always_abort(const smart_assert_data&) { return EAssertionResult::ABORT; }

TEST(CrashDumpChildren, DISABLED_AssertionAborts) {
    start_logging();
    ASSERT_TRUE(CrashCatchExceptions(true));
    SetAssertFunc(always_abort);
    SMART_ASSERT(1 == 2);
}

TEST(CrashDumpChildren, DISABLED_CrashUncaught) {
    start_logging();
    ASSERT_TRUE(CrashCatchExceptions(true));
    ASSERT_TRUE(CrashCatchExceptions(false));
    crash_on_purpose();
    std::fflush(stdout);  // not reached; keeps the call above from becoming a jump, which would leave no frame here
}

TEST(CrashDumpChildren, DISABLED_Dump) {
    start_logging();
    EXPECT_TRUE(GenerateDump());
    EXPECT_TRUE(WriteFullDump((child_root() + "/full.dump").c_str()));
    EXPECT_FALSE(WriteFullDump((child_root() + "/full.dump").c_str())) << "nothing is overwritten";
    EXPECT_FALSE(GenerateDump((child_root() + "/missing/dump").c_str()));
    EXPECT_FALSE(GenerateDump(std::string(5000, 'x').c_str()));
    CrashClose();
    fs::shutdown();
}

std::string read_file(const stdfs::path& path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

/// The dumps that a child left beside its log.
std::vector<std::string> dumps(const stdfs::path& root) {
    std::vector<std::string> found;
    for (const auto& item : stdfs::recursive_directory_iterator(root)) {
        const std::string ending = item.path().extension().string();
        if (ending == ".dmp" || ending == ".txt" || ending == ".dump") found.push_back(read_file(item.path()));
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

constexpr std::uint32_t thread_list = 3, module_list = 4, exception = 6, system_info = 7, comment = 10;

class CrashDump : public testing::Test {
protected:
    CrashDump() : root_("root") {
        stdfs::remove_all(root_);
        stdfs::create_directories(root_);
    }
    const stdfs::path root_;
};

TEST_F(CrashDump, ACrashLeavesAnAccountAndEndsTheProcessAllTheSame) {
    const ChildResult result = run_child("CrashDumpChildren.DISABLED_Crash", root_);
    EXPECT_NE(result.exit_code, 0);
    EXPECT_THAT(result.output, testing::Not(HasSubstr("still here")));
    const auto found = dumps(root_);
    ASSERT_EQ(found.size(), 1u) << result.output;
    if (is_minidump) {
        EXPECT_THAT(minidump_streams(found[0]),
                    testing::IsSupersetOf({thread_list, module_list, exception, system_info, comment}));
        EXPECT_THAT(found[0], HasSubstr("the last line")) << "in the comment";
        return;
    }
    const auto at = [&](const char* text) { return found[0].find(text); };
    EXPECT_THAT(found[0], HasSubstr("SIGSEGV"));
    EXPECT_LT(at("  rip 0x"), at("Back-trace"));
    EXPECT_LT(at("crash_on_purpose+0x"), at("Modules")) << found[0];
    EXPECT_LT(at("DISABLED_Crash"), at("Modules")) << "who called it";
    EXPECT_LT(at("libc.so"), at("Last log lines"));
    EXPECT_THAT(found[0], HasSubstr("[Test] > the last line\r\n"));
    EXPECT_THAT(found[0], testing::EndsWith("End of report\n"));
}

TEST_F(CrashDump, AnAbortLeavesOneToo) {
    const ChildResult result = run_child("CrashDumpChildren.DISABLED_AssertionAborts", root_);
    EXPECT_NE(result.exit_code, 0);
    const auto found = dumps(root_);
    ASSERT_EQ(found.size(), 1u) << result.output;
    if (is_minidump) EXPECT_THAT(minidump_streams(found[0]), testing::Contains(exception));
    if (!is_minidump) EXPECT_THAT(found[0], HasSubstr("SIGABRT"));
}

TEST_F(CrashDump, IsOptional) {
    const ChildResult result = run_child("CrashDumpChildren.DISABLED_CrashUncaught", root_);
    EXPECT_NE(result.exit_code, 0);
    EXPECT_EQ(dumps(root_).size(), 0u);
}

TEST_F(CrashDump, CanBeWrittenOfARunningProcess) {
    const ChildResult result = run_child("CrashDumpChildren.DISABLED_Dump", root_);
    EXPECT_EQ(result.exit_code, 0) << result.output;
    const auto found = dumps(root_);
    ASSERT_EQ(found.size(), 2u) << result.output;
    for (const std::string& dump : found) {
        if (is_minidump) {
            EXPECT_THAT(minidump_streams(dump),
                        testing::IsSupersetOf({thread_list, module_list, system_info, comment}));
        } else {
            EXPECT_THAT(dump, HasSubstr("DISABLED_Dump"));
            EXPECT_THAT(dump, HasSubstr("the last line"));
        }
    }
}

}  // namespace

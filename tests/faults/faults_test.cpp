#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <optional>

#include "engine/platform/error.h"
#include "engine/platform/threads.h"
#include "tests/faults/stage.h"
#include "tests/support/temp_directory.h"

// Every exported family meets every single fault once: the Nth allocation, and the Nth call past each point of the
// platform seam, for N = 1, 2 … until a run meets none. After each: the answer is honest and so is its reason, old data
// is whole, nothing is left open, and the same again succeeds.

// Allocations of every thread are under orders: the linker sends our calls of the C allocator, and those of the library's
// archive, through the functions named __wrap_ (see tests/CMakeLists.txt), and operator new is replaced for the whole
// program. What other libraries take for themselves is not, nor what the compiler's run-time library takes for its own
// mutexes and variables of threads on Windows.

namespace {

constinit std::atomic<std::int64_t> calls_left{0};  // 0: no order
constinit std::atomic<std::uint32_t> hits{0};
constinit std::atomic<bool> lasting{false};

#ifdef _WIN32
constinit platform::PerThread<int, struct InRunTime> in_run_time;
#else
constexpr int in_run_time = 0;
#endif

bool strikes() {
    if (in_run_time != 0) return false;
    if (calls_left.load(std::memory_order_relaxed) <= 0) return false;
    const std::int64_t left = calls_left.fetch_sub(1);
    if (left != 1) return false;
    if (lasting.load(std::memory_order_relaxed)) calls_left.store(1);
    ++hits;
    return true;
}

}  // namespace

extern "C" {
void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);
void* __real_realloc(void* block, std::size_t size);

void* __wrap_malloc(std::size_t size) { return strikes() ? nullptr : __real_malloc(size); }
void* __wrap_calloc(std::size_t count, std::size_t size) { return strikes() ? nullptr : __real_calloc(count, size); }
void* __wrap_realloc(void* block, std::size_t size) { return strikes() ? nullptr : __real_realloc(block, size); }

#ifdef _WIN32
// The run-time library is linked statically and takes memory when it locks for the first time and for the first exception
// of a thread. Without any it ends the process.
void* __real___emutls_get_address(void* variable);
int __real_pthread_mutex_lock(void* mutex);

void* __wrap___emutls_get_address(void* variable) {
    ++in_run_time;
    void* const address = __real___emutls_get_address(variable);
    --in_run_time;
    return address;
}
int __wrap_pthread_mutex_lock(void* mutex) {
    ++in_run_time;
    const int result = __real_pthread_mutex_lock(mutex);
    --in_run_time;
    return result;
}
#endif
}

void* operator new(std::size_t size) {
    void* const block = strikes() ? nullptr : __real_malloc(size != 0 ? size : 1);
    if (block == nullptr) throw std::bad_alloc();
    return block;
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return strikes() ? nullptr : __real_malloc(size != 0 ? size : 1);
}
// Where GCC sees into these, it takes std::free for no partner of operator new.
[[gnu::noinline]] void operator delete(void* block) noexcept { std::free(block); }
[[gnu::noinline]] void operator delete(void* block, std::size_t) noexcept { std::free(block); }
[[gnu::noinline]] void operator delete(void* block, const std::nothrow_t&) noexcept { std::free(block); }

namespace {

using platform::Failure;
using platform::FaultPoint;

struct Fault {
    const char* name;
    std::optional<FaultPoint> point;  // none: an allocation
    Failure failure = Failure::OTHER;
    bool from_then_on = false;
    EFSError::TYPE reason = EFSError::NONE;  // what a failing call must say; NONE: any reason will do

    void order(std::uint32_t nth) const {
        if (point) return platform::inject_fault(*point, nth, failure, from_then_on);
        hits = 0;
        lasting = from_then_on;
        calls_left = nth;
    }
    /// Whether the order struck.
    bool forget_order() const {
        const std::uint32_t struck = point ? platform::fault_hits() : hits.load();
        calls_left = 0;
        platform::clear_faults();
        return struck != 0;
    }
};

const Fault faults[] = {
    {"allocation", std::nullopt, Failure::OTHER, false, EFSError::OUT_OF_MEMORY},
    {"allocations from then on", std::nullopt, Failure::OTHER, true, EFSError::OUT_OF_MEMORY},
    {"open", FaultPoint::OPEN},
    {"open, denied", FaultPoint::OPEN, Failure::ACCESS_DENIED},
    {"read", FaultPoint::READ, Failure::OTHER, false, EFSError::IO},
    {"full disk", FaultPoint::WRITE, Failure::DISK_FULL, true, EFSError::DISK_FULL},
    {"write", FaultPoint::WRITE},
    {"listing", FaultPoint::LIST},
    {"stat", FaultPoint::STAT},
    {"length", FaultPoint::LENGTH, Failure::OTHER, false, EFSError::IO},
    {"lock", FaultPoint::LOCK},
    {"truncation", FaultPoint::TRUNCATE},
    {"sync", FaultPoint::SYNC},
    {"attributes", FaultPoint::CHANGE},
    {"descriptor", FaultPoint::DUPLICATE},
    {"removal", FaultPoint::REMOVE},
    {"renaming", FaultPoint::RENAME},
    {"making a directory", FaultPoint::CREATE_DIRECTORY, Failure::DISK_FULL},
    {"setting the end", FaultPoint::SET_END},
    {"thread", FaultPoint::THREAD},
    {"threads from then on", FaultPoint::THREAD, Failure::OTHER, true},
};

/// "" or what is wrong with the reason that a failing call left.
std::string wrong_reason(const Fault& fault) {
    const SFsError& error = fs::last_error();
    if (error.code == EFSError::NONE) return "it failed without a reason";
    if (fault.reason == EFSError::NONE || error.code == fault.reason) return "";
    return "it failed with the reason " + std::to_string(error.code) + ", system code " +
           std::to_string(error.os_code) + ": " + error.text;
}

/// The same for what a command of the tool said.
std::string wrong_message(const Fault& fault) {
    const std::string said = test::tool_messages();
    if (said.empty()) return "it failed without a word";
    const char* const word = fault.reason == EFSError::OUT_OF_MEMORY ? "memory"
                             : fault.reason == EFSError::DISK_FULL   ? "full"
                                                                     : "";
    return said.find(word) != std::string::npos ? "" : "it failed with the words " + said;
}

void prepare(const test::Scenario& scenario, test::Stage& stage) {
    stage.build();
    scenario.prepare(stage);
    fs::clear_error();
}

bool holds(const test::Tree& tree, const std::string& name, const std::string& bytes) {
    const auto place = tree.find(name);
    return place != tree.end() && place->second == bytes;
}

bool holds_bytes(const test::Tree& tree, const std::string& bytes) {
    return std::ranges::any_of(tree, [&](const auto& file) { return file.second == bytes; });
}

/// What the library answers of a name below the root, which the scenario may have made, changed or removed.
std::string wrong_answer(const std::string& name, const test::Tree& now, bool answer) {
    const std::string below = name.substr(sizeof("root/") - 1);
    const auto found = now.find(name);
    const bool is_there = found != now.end();
    if (name.ends_with('/')) {
        const bool is_gone = is_there || fs::search_dir(below.c_str()) == nullptr;
        return is_gone ? "" : "the index still has " + name;
    }
    if (fs::exists(below.c_str()) != is_there) return "disk and library disagree about " + name;
    return !answer || !is_there || test::load(below.c_str()) == found->second ? "" : "the library has another " + name;
}

/// What a scenario leaves on the disk when nothing fails: what it may leave is held against that.
struct Outcome {
    test::Tree before, after;
};

/// "" or what is wrong with the disk, or with what the library answers about it.
std::string wrong_outcome(const test::Scenario& scenario, const test::Stage& stage, const Outcome& normal,
                          bool answer) {
    const auto& [before, after] = normal;
    const std::string& half_made = scenario.half_made;
    const test::Tree now = stage.disk();
    const auto is_free = [&](const std::string& name) {
        const bool is_half_made = name == half_made || (half_made.ends_with('/') && name.starts_with(half_made));
        return is_half_made && (!answer || scenario.bytes_vary);
    };
    for (const auto& [name, bytes] : now) {
        if (!is_free(name) && !holds(after, name, bytes) && (answer || !holds(before, name, bytes)))
            return name + " is not what it should be: \"" + bytes.substr(0, 60) + "\"";
    }
    for (const auto& [name, bytes] : after)
        if (answer && !now.contains(name) && !is_free(name)) return name + " is missing";
    for (const auto& [name, bytes] : before)
        if (!is_free(name) && holds_bytes(after, bytes) && !holds_bytes(now, bytes))
            return "the bytes of " + name + " are lost";
    for (const test::Tree* const tree : {&before, &after}) {
        for (const auto& [name, bytes] : *tree) {
            const bool may_change = !holds(before, name, bytes) || !holds(after, name, bytes);
            if (!may_change || !name.starts_with("root/") || !fs::is_initialized()) continue;
            if (std::string wrong = wrong_answer(name, now, answer); !wrong.empty()) return wrong;
        }
    }
    return "";
}

void check(const test::Scenario& scenario, test::Stage& stage, const Outcome& normal, bool answer) {
    EXPECT_EQ(wrong_outcome(scenario, stage, normal, answer), "") << (answer ? "after success" : "after failure");
    EXPECT_EQ(scenario.check(stage, answer), "") << (answer ? "after success" : "after failure");
}

/// What the scenario leaves when nothing fails.
Outcome outcome(const test::Scenario& scenario, test::Stage& stage) {
    prepare(scenario, stage);
    Outcome normal{stage.disk(), {}};
    EXPECT_TRUE(scenario.act(stage)) << fs::last_error().text << test::tool_messages();
    normal.after = stage.disk();
    check(scenario, stage, normal, true);
    stage.unmount();
    return normal;
}

/// One fault in one scenario. False when the run met none.
bool meets(const test::Scenario& scenario, test::Stage& stage, const Outcome& normal, const Fault& fault,
           std::uint32_t nth) {
    prepare(scenario, stage);
    fault.order(nth);
    const bool answer = scenario.act(stage);
    const bool struck = fault.forget_order();
    if (!answer) {
        const std::string wrong = scenario.by_message ? wrong_message(fault) : wrong_reason(fault);
        EXPECT_EQ(struck ? wrong : "it failed without a fault", "");
    }
    check(scenario, stage, normal, answer);
    if (struck && !answer && scenario.repeatable) {
        EXPECT_TRUE(scenario.act(stage)) << "the same again fails: " << fs::last_error().text;
        check(scenario, stage, normal, true);
    }
    stage.unmount();
    EXPECT_EQ(stage.left_open(), "") << "is still open";
    return struck;
}

/// A command of the tool meets hundreds while it reads its own line and prints: there a sample of the later ones does.
std::uint32_t stride(const test::Scenario& scenario, std::uint32_t nth) {
    static const bool all = std::getenv("ENGINE_ALL_FAULTS") != nullptr;
    return scenario.by_message && nth >= 60 && !all ? 7 : 1;
}

class Faults : public testing::TestWithParam<test::Scenario> {};

TEST_P(Faults, LoseNothingAndAreToldTruly) {
    Log::Settings::Instance().SetLevel(Log::ELevel::NONE);  // a start that fails ends the process by its message
    const test::Scenario& scenario = GetParam();
    const TempDirectory directory;
    test::Stage stage(directory.path());
    const Outcome normal = outcome(scenario, stage);
    std::uint32_t visited = 0;
    for (const Fault& fault : faults) {
        if (!fault.point && !scenario.allocations) continue;
        for (std::uint32_t nth = 1;; nth += stride(scenario, nth)) {
            SCOPED_TRACE(std::string(scenario.name) + ", " + fault.name + " number " + std::to_string(nth));
            ASSERT_LT(nth, 5000u);
            if (!meets(scenario, stage, normal, fault, nth)) break;
            ++visited;
        }
    }
    EXPECT_NE(visited, 0u) << "nothing failed";
    std::printf("%-24s %u faults\n", scenario.name, visited);
}

std::string scenario_name(const testing::TestParamInfo<test::Scenario>& info) {
    std::string name = info.param.name;
    std::erase(name, ' ');
    return name;
}

INSTANTIATE_TEST_SUITE_P(Library, Faults, testing::ValuesIn(test::scenarios()), scenario_name);
INSTANTIATE_TEST_SUITE_P(Tool, Faults, testing::ValuesIn(test::tool_scenarios()), scenario_name);

}  // namespace

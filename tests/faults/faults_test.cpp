#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <optional>

#include "engine/platform/error.h"
#include "tests/faults/stage.h"
#include "tests/support/temp_directory.h"

// Every exported family meets every single fault once: the Nth allocation, and the Nth call past each point of the
// platform seam, for N = 1, 2 … until a run meets none. After each: the answer is honest and so is its reason, old data
// is whole, nothing is left open, and the same again succeeds.

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
        if (!point) return test::fail_allocation(nth, from_then_on);
        platform::inject_fault(*point, nth, failure, from_then_on);
    }
    /// Whether the order struck.
    bool forget_order() const {
        const std::uint32_t hits = point ? platform::fault_hits() : test::allocation_hits();
        test::fail_allocation(0);
        platform::clear_faults();
        return hits != 0;
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

void check(const test::Scenario& scenario, test::Stage& stage, const test::Outcome& normal, bool answer) {
    EXPECT_EQ(normal.check(stage, answer), "") << (answer ? "after success" : "after failure");
    EXPECT_EQ(scenario.check(stage, answer), "") << (answer ? "after success" : "after failure");
}

/// What the scenario leaves when nothing fails.
test::Outcome outcome(const test::Scenario& scenario, test::Stage& stage) {
    prepare(scenario, stage);
    test::Outcome normal{stage.disk(), {}, scenario.half_made, scenario.bytes_vary};
    EXPECT_TRUE(scenario.act(stage)) << fs::last_error().text << test::tool_messages();
    normal.after = stage.disk();
    check(scenario, stage, normal, true);
    stage.unmount();
    return normal;
}

/// One fault in one scenario. False when the run met none.
bool meets(const test::Scenario& scenario, test::Stage& stage, const test::Outcome& normal, const Fault& fault,
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
    const test::Outcome normal = outcome(scenario, stage);
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

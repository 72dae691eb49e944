#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tests/faults/stage.h"

namespace test {

/// What an exported family does while the disk or memory may fail.
struct Scenario {
    const char* name;
    /// On a fresh stage, before anything fails: mounts it, mostly.
    std::function<void(Stage&)> prepare;
    /// What may meet the fault. Its answer; for calls without one, whether fs::last_error stayed empty.
    std::function<bool(Stage&)> act;
    /// "" or what is wrong, after the fault, with the library still mounted. `answer` is what `act` said.
    std::function<std::string(Stage&, bool answer)> check;
    /// Whether, after a failure, the same again must succeed and pass the check with `answer` true.
    bool repeatable = true;
    /// A command of the tool: it says why on standard error.
    bool by_message = false;
    /// False: it lists directories by the standard library, which ends the program when it gets no memory.
    bool allocations = true;
};

const std::vector<Scenario>& scenarios();

}  // namespace test

#pragma once

#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "tests/faults/stage.h"

namespace test {

inline void mounted(Stage& stage) { stage.mount(); }
inline std::string nothing_wrong(Stage&, bool) { return ""; }

/// What an exported family does while the disk or memory may fail. Whatever fails, each file is as before or as it would
/// be after success, and after success all are.
struct Scenario {
    const char* name;
    /// What may meet the fault. Its answer; for calls without one, whether fs::last_error stayed empty.
    std::function<bool(Stage&)> act;
    /// On a fresh stage, before anything fails.
    std::function<void(Stage&)> prepare = mounted;
    /// The file, or the directory with a "/" at its end, that a failure may leave half made.
    std::string half_made = {};
    /// "" or what else is wrong, after the fault, with the library still mounted. `answer` is what `act` said.
    std::function<std::string(Stage&, bool answer)> check = nothing_wrong;
    /// What may be half made differs from run to run, too; `check` judges it.
    bool bytes_vary = false;
    /// Whether, after a failure, the same again must succeed and pass the check with `answer` true.
    bool repeatable = true;
    /// A command of the tool: it says why on standard error.
    bool by_message = false;
    /// False: it lists directories by the standard library, which ends the program when it gets no memory.
    bool allocations = true;
};

inline void PrintTo(const Scenario& scenario, std::ostream* out) { *out << scenario.name; }

const std::vector<Scenario>& scenarios();
/// A row for each command of enginefs.
std::vector<Scenario> tool_scenarios();
/// What the last command said on standard error.
std::string tool_messages();

}  // namespace test

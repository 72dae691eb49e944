#pragma once

#include <string>
#include <vector>

#include "tests/faults/scenarios.h"

namespace test {

/// A row for each command of enginefs. What a command leaves is held against what it leaves when nothing fails.
std::vector<Scenario> tool_scenarios();
/// What the last command said on standard error.
std::string tool_messages();

}  // namespace test

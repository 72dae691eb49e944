#pragma once

#include <cstdlib>

/// What must hold for any input: where it does not, the run ends, and the fuzzer keeps the input.
inline void require(bool holds) {
    if (!holds) std::abort();
}

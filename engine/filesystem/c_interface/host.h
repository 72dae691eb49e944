#pragma once

#include "engine/platform/threads.h"

namespace fs::c {

/// Stands on the stack of a thread while a callback of the host runs.
class InHost {
public:
    InHost() { ++depth; }
    InHost(const InHost&) = delete;
    InHost& operator=(const InHost&) = delete;
    ~InHost() { --depth; }

    static bool is_here() { return depth != 0; }

private:
    static inline constinit platform::PerThread<int, InHost> depth;
};

}  // namespace fs::c

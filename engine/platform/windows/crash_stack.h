#pragma once

namespace platform {

/// Keeps a part of the calling thread's stack for the crash handler, which could not run on one that is used up.
void reserve_stack_for_crash();

}  // namespace platform

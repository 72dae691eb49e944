#pragma once

#include <signal.h>

#include "engine/platform/crash.h"

namespace platform {

struct CrashContext {
    int signal_number = 0;
    const siginfo_t* info = nullptr;
    const void* context = nullptr;  // ucontext_t
};

/// Done when the handler is installed, since a broken process can neither ask the loader nor load the unwinder.
void prepare_reports();

}  // namespace platform

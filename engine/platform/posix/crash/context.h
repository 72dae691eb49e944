#pragma once

#include <signal.h>
#include <ucontext.h>

#include "engine/platform/crash.h"

namespace platform {

struct CrashContext {
    int signal_number = 0;
    const siginfo_t* info = nullptr;
    const ucontext_t* context = nullptr;
};

}  // namespace platform

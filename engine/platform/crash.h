#pragma once

#include <cstddef>

#include "engine/platform/error.h"

// What is asked of a system about a process that is in trouble.

namespace platform {

/// Stops in the debugger. Without one the process ends there, as the system ends a process at a breakpoint.
void break_into_debugger();

/// Return addresses of the calling thread, innermost first, without this call and `skip` more. Returns their number.
int capture_stack(void** frames, int capacity, int skip);
/// One line about a return address: the address, its module, and the function where the system knows its name.
void describe_frame(const void* frame, char* out, std::size_t capacity);

/// What the system tells about a crash while its handler runs; the back end's own.
struct CrashContext;

/// Hands text over in pieces.
using TextSink = void (*)(const char* text, std::size_t length, void* user);

struct DumpRequest {
    const char* path = "";                // of the file to be made, native
    bool full = false;                    // with all memory (Windows)
    const CrashContext* crash = nullptr;  // null: the process as it is, seen from the calling thread
    void (*write_log)(TextSink write, void* user) = nullptr;  // hands over the last log lines; may be null
};
/// Writes an account of the process: a minidump on Windows, a readable report on Linux. ALREADY_EXISTS when the file is
/// there. What fails leaves no file, but for what could still be written of a crash on Linux, where it takes no memory and
/// no lock of ours, so that a handler may call it.
Failure write_dump(const DumpRequest& request);
/// The file ending that fits what write_dump writes, with its dot.
const char* dump_ending();

/// Room for the crash handler on the thread that makes it, where the thread has none yet: it could not run on a stack that
/// is used up. Given back by the destructor, on the same thread.
class CrashStack {
public:
    CrashStack();
    CrashStack(const CrashStack&) = delete;
    CrashStack& operator=(const CrashStack&) = delete;
    ~CrashStack();
    /// Leaves it to the thread for good.
    void keep() { memory_ = nullptr; }

private:
    void* memory_ = nullptr;
};

/// Called once on the crashing thread, in a process where nothing can be relied on.
using CrashHandler = void (*)(const CrashContext* crash);
/// Asks to be called when the process crashes. Other threads that crash meanwhile wait. Whatever was installed before is
/// called afterwards, and in the end the system ends the process as it would have: nothing is swallowed. False when it is
/// installed already, or was buried under handlers of others too often.
bool install_crash_handler(CrashHandler handler);
/// Puts back what was there before, where nobody else has installed something since.
void remove_crash_handler();

}  // namespace platform

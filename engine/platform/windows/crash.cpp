// Crashes on Windows: the system's own dump library writes the minidump, loaded when it is needed. The exception filter
// calls whatever filter was there before, and never claims to have handled anything.
#include "engine/platform/crash.h"

#include <windows.h>
// After windows.h, which it needs.
#include <dbghelp.h>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstring>

#include "engine/platform/windows/crash_stack.h"

namespace platform {

struct CrashContext {
    EXCEPTION_POINTERS* pointers = nullptr;
    DWORD thread = 0;  // that crashed
};

namespace {

struct HandlerState {
    std::atomic<CrashHandler> handler{nullptr};
    std::atomic<bool> reported{false};
    LPTOP_LEVEL_EXCEPTION_FILTER previous = nullptr;
    void (*previous_abort)(int) = SIG_DFL;
};
constinit HandlerState state;

/// The last log lines as the minidump's comment. A static block, since the process may be out of memory and stack.
struct Comment {
    char text[128 * 1024];
    std::size_t length = 0;

    static void add(const char* text, std::size_t length, void* user) {
        Comment& comment = *static_cast<Comment*>(user);
        const std::size_t room = sizeof(comment.text) - 1 - comment.length;
        if (length > room) length = room;
        std::memcpy(comment.text + comment.length, text, length);
        comment.length += length;
    }
};
Comment comment;
std::atomic_flag comment_taken;

DWORD WINAPI call_handler(void* crash) {
    if (const CrashHandler handler = state.handler.load()) handler(static_cast<const CrashContext*>(crash));
    return 0;
}

/// A stack that is used up has no room for a report, which another thread then writes.
void report(EXCEPTION_POINTERS* pointers) {
    constexpr DWORD longest_wait_ms = 10'000;
    if (state.reported.exchange(true)) return;
    CrashContext crash{.pointers = pointers, .thread = GetCurrentThreadId()};
    if (pointers->ExceptionRecord->ExceptionCode != EXCEPTION_STACK_OVERFLOW) {
        call_handler(&crash);
        return;
    }
    const HANDLE reporter = CreateThread(nullptr, 0, call_handler, &crash, 0, nullptr);
    if (reporter == nullptr) return;
    WaitForSingleObject(reporter, longest_wait_ms);
    CloseHandle(reporter);
}

LONG WINAPI on_exception(EXCEPTION_POINTERS* pointers) {
    report(pointers);
    return state.previous != nullptr ? state.previous(pointers) : EXCEPTION_CONTINUE_SEARCH;
}

/// std::abort raises no exception: it is described as one, and goes on ending the process.
void on_abort(int signal_number) {
    constexpr DWORD gave_up = 0x40000015;  // STATUS_FATAL_APP_EXIT
    CONTEXT context{};
    RtlCaptureContext(&context);
    EXCEPTION_RECORD record{};
    record.ExceptionCode = gave_up;
    record.ExceptionFlags = EXCEPTION_NONCONTINUABLE;
    record.ExceptionAddress = reinterpret_cast<void*>(context.Rip);
    EXCEPTION_POINTERS pointers{&record, &context};
    report(&pointers);
    const auto previous = state.previous_abort;
    if (previous != SIG_DFL && previous != SIG_IGN && previous != SIG_ERR) previous(signal_number);
}

template <class Function>
Function find_dump_function(HMODULE library, const char* name) {
    return library == nullptr ? nullptr
                              : reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(library, name)));
}

using WriteDumpFunction = decltype(&MiniDumpWriteDump);

MINIDUMP_TYPE dump_type(bool full) {
    if (!full) return static_cast<MINIDUMP_TYPE>(MiniDumpNormal | MiniDumpWithThreadInfo);
    return static_cast<MINIDUMP_TYPE>(MiniDumpWithFullMemory | MiniDumpWithFullMemoryInfo | MiniDumpWithHandleData |
                                      MiniDumpWithThreadInfo);
}

bool write_to(HANDLE file, WriteDumpFunction write, const DumpRequest& request) {
    MINIDUMP_EXCEPTION_INFORMATION exception{};
    if (request.crash != nullptr) exception = {request.crash->thread, request.crash->pointers, FALSE};
    comment.length = 0;
    if (request.write_log != nullptr) request.write_log(Comment::add, &comment);
    comment.text[comment.length] = '\0';
    MINIDUMP_USER_STREAM stream{CommentStreamA, static_cast<ULONG>(comment.length + 1), comment.text};
    MINIDUMP_USER_STREAM_INFORMATION streams{1, &stream};
    return write(GetCurrentProcess(), GetCurrentProcessId(), file, dump_type(request.full),
                 request.crash == nullptr ? nullptr : &exception, &streams, nullptr) != FALSE;
}

}  // namespace

void reserve_stack_for_crash() {
    ULONG size = 32 * 1024;  // enough to start a thread that writes the report
    SetThreadStackGuarantee(&size);
}

void break_into_debugger() { DebugBreak(); }

[[gnu::noinline]] int capture_stack(void** frames, int capacity, int skip) {
    return RtlCaptureStackBackTrace(static_cast<ULONG>(skip) + 1, static_cast<ULONG>(capacity), frames, nullptr);
}

void describe_frame(const void* frame, char* out, std::size_t capacity) {
    HMODULE module = nullptr;
    char path[MAX_PATH] = "";
    constexpr DWORD by_address = GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT;
    if (GetModuleHandleExA(by_address, static_cast<LPCSTR>(frame), &module) != FALSE) {
        GetModuleFileNameA(module, path, sizeof(path));
    }
    const char* const separator = std::strrchr(path, '\\');
    const auto address = reinterpret_cast<std::uintptr_t>(frame);
    std::snprintf(out, capacity, "0x%016llx %s+0x%llx", static_cast<unsigned long long>(address),
                  separator == nullptr ? path : separator + 1,
                  static_cast<unsigned long long>(address - reinterpret_cast<std::uintptr_t>(module)));
}

bool write_dump(const DumpRequest& request) {
    if (comment_taken.test_and_set()) return false;  // another thread writes one at this moment
    const HMODULE library = LoadLibraryA("dbghelp.dll");
    const auto write = find_dump_function<WriteDumpFunction>(library, "MiniDumpWriteDump");
    bool is_written = false;
    if (write != nullptr) {
        const HANDLE file = CreateFileA(request.path, GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                        FILE_ATTRIBUTE_NORMAL, nullptr);
        if (file != INVALID_HANDLE_VALUE) {
            is_written = write_to(file, write, request);
            CloseHandle(file);
            if (!is_written) DeleteFileA(request.path);
        }
    }
    comment_taken.clear();
    return is_written;
}

const char* dump_ending() { return ".dmp"; }

bool install_crash_handler(CrashHandler handler) {
    CrashHandler none = nullptr;
    if (handler == nullptr || !state.handler.compare_exchange_strong(none, handler)) return false;
    state.reported.store(false);
    reserve_stack_for_crash();
    state.previous = SetUnhandledExceptionFilter(on_exception);
    state.previous_abort = std::signal(SIGABRT, on_abort);
    return true;
}

void remove_crash_handler() {
    if (state.handler.exchange(nullptr) == nullptr) return;
    // Whoever installed a filter since keeps it: it may call ours, which then does nothing but call the one before.
    const LPTOP_LEVEL_EXCEPTION_FILTER current = SetUnhandledExceptionFilter(state.previous);
    if (current != on_exception) SetUnhandledExceptionFilter(current);
    const auto current_abort = std::signal(SIGABRT, state.previous_abort);
    if (current_abort != on_abort) std::signal(SIGABRT, current_abort);
}

}  // namespace platform

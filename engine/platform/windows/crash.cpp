// Crashes on Windows: the system's own dump library writes the minidump. It is loaded when the handler is installed, since
// a broken process may hold the loader's lock. The exception filter calls whatever filter was there before, and never
// claims to have handled anything.
#include "engine/platform/crash.h"

#include <windows.h>
// After windows.h, which it needs.
#include <dbghelp.h>

#include <atomic>
#include <csignal>
#include <cstring>
#include <mutex>

#include "engine/platform/text.h"
#include "engine/platform/threads.h"
#include "engine/platform/windows/system.h"

namespace platform {

struct CrashContext {
    EXCEPTION_POINTERS* pointers = nullptr;
    DWORD thread = 0;  // that crashed
};

namespace {

using WriteDumpFunction = decltype(&MiniDumpWriteDump);

constexpr std::size_t most_levels = 8;

/// What was there before us.
struct Level {
    LPTOP_LEVEL_EXCEPTION_FILTER filter = nullptr;
    void (*on_abort)(int) = SIG_DFL;
};

struct HandlerState {
    std::atomic<CrashHandler> handler{nullptr};
    std::atomic<WriteDumpFunction> write_dump{nullptr};
    std::atomic<DWORD> reporter{0};  // the thread that crashed first; one report for one process
    std::atomic<bool> is_writing{false};
    // The oldest first: more than one where the host put a filter of its own above ours and then asked for ours again. The
    // host's filter may call ours, so that one crash passes here once for each level.
    Level levels[most_levels];
    std::size_t level_count = 0;
    DWORD passed_slot = TLS_OUT_OF_INDEXES;  // of each thread: how many levels it has passed
};
constinit HandlerState state;

/// The last log lines, as the minidump's comment. A static block, since the process may be out of memory and stack.
char comment[128 * 1024];
constinit Mutex dump_lock;  // guards it; held while a dump is written

DWORD WINAPI call_handler(void* crash) {
    if (const CrashHandler handler = state.handler.load()) handler(static_cast<const CrashContext*>(crash));
    return 0;
}

/// Another thread crashed while the dump is being written: its end would cut the dump short.
void wait_for_dump() {
    constexpr int longest_wait_ms = 30'000;
    constexpr int pause_ms = 10;
    for (int waited = 0; waited < longest_wait_ms && state.is_writing.load(); waited += pause_ms) Sleep(pause_ms);
}

/// A stack that is used up has no room for a report, which another thread then writes.
void report_on_fresh_stack(CrashContext& crash) {
    constexpr DWORD longest_wait_ms = 10'000;
    const HANDLE thread = CreateThread(nullptr, 0, call_handler, &crash, 0, nullptr);
    if (thread == nullptr) return;
    WaitForSingleObject(thread, longest_wait_ms);
    CloseHandle(thread);
}

void report(EXCEPTION_POINTERS* pointers) {
    CrashContext crash{.pointers = pointers, .thread = GetCurrentThreadId()};
    DWORD reporter = 0;
    if (!state.reporter.compare_exchange_strong(reporter, crash.thread)) {
        if (reporter != crash.thread) wait_for_dump();
        return;
    }
    state.is_writing.store(true);
    if (pointers->ExceptionRecord->ExceptionCode == EXCEPTION_STACK_OVERFLOW) {
        report_on_fresh_stack(crash);
    } else {
        call_handler(&crash);
    }
    state.is_writing.store(false);
}

/// Calls `use` with the level whose turn it is on this thread; nothing when all were passed.
template <class Use>
void pass_on(Use use) {
    const auto passed = reinterpret_cast<std::uintptr_t>(TlsGetValue(state.passed_slot));
    if (passed >= state.level_count) return;
    TlsSetValue(state.passed_slot, reinterpret_cast<void*>(passed + 1));
    use(state.levels[state.level_count - 1 - passed]);
    TlsSetValue(state.passed_slot, reinterpret_cast<void*>(passed));
}

LONG WINAPI on_exception(EXCEPTION_POINTERS* pointers) {
    report(pointers);
    LONG answer = EXCEPTION_CONTINUE_SEARCH;
    pass_on([&](const Level& before) {
        if (before.filter != nullptr) answer = before.filter(pointers);
    });
    return answer;
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
    pass_on([&](const Level& before) {
        const auto previous = before.on_abort;
        if (previous != SIG_DFL && previous != SIG_IGN && previous != SIG_ERR) previous(signal_number);
    });
}

/// Null when the system has no dump library.
WriteDumpFunction load_dump_library() {
    WriteDumpFunction found = state.write_dump.load();
    if (found != nullptr) return found;
    const HMODULE library = LoadLibraryW(L"dbghelp.dll");
    if (library == nullptr) return nullptr;
    found = reinterpret_cast<WriteDumpFunction>(reinterpret_cast<void*>(GetProcAddress(library, "MiniDumpWriteDump")));
    state.write_dump.store(found);
    return found;
}

MINIDUMP_TYPE dump_type(bool full) {
    if (!full) return static_cast<MINIDUMP_TYPE>(MiniDumpNormal | MiniDumpWithThreadInfo);
    return static_cast<MINIDUMP_TYPE>(MiniDumpWithFullMemory | MiniDumpWithFullMemoryInfo | MiniDumpWithHandleData |
                                      MiniDumpWithThreadInfo);
}

bool write_to(HANDLE file, WriteDumpFunction write, const DumpRequest& request) {
    MINIDUMP_EXCEPTION_INFORMATION exception{};
    if (request.crash != nullptr) exception = {request.crash->thread, request.crash->pointers, FALSE};
    BoundedText log(comment);
    const TextSink add = [](const char* text, std::size_t length, void* user) {
        static_cast<BoundedText*>(user)->add({text, length});
    };
    if (request.write_log != nullptr) request.write_log(add, &log);
    MINIDUMP_USER_STREAM stream{CommentStreamA, static_cast<ULONG>(log.length() + 1), comment};
    MINIDUMP_USER_STREAM_INFORMATION streams{1, &stream};
    return write(GetCurrentProcess(), GetCurrentProcessId(), file, dump_type(request.full),
                 request.crash == nullptr ? nullptr : &exception, &streams, nullptr) != FALSE;
}

}  // namespace

CrashStack::CrashStack() {
    ULONG size = 32 * 1024;  // enough to start a thread that writes the report
    SetThreadStackGuarantee(&size);
}

CrashStack::~CrashStack() = default;

void break_into_debugger() { DebugBreak(); }

[[gnu::noinline]] int capture_stack(void** frames, int capacity, int skip) {
    return RtlCaptureStackBackTrace(static_cast<ULONG>(skip) + 1, static_cast<ULONG>(capacity), frames, nullptr);
}

void describe_frame(const void* frame, char* out, std::size_t capacity) {
    const HMODULE module = module_at(frame);
    char path[MAX_PATH] = "";
    wchar_t wide[MAX_PATH];
    if (module != nullptr) to_narrow({wide, GetModuleFileNameW(module, wide, MAX_PATH)}, path, sizeof path);
    const char* const separator = std::strrchr(path, '\\');
    const auto address = reinterpret_cast<std::uintptr_t>(frame);
    BoundedText text(out, capacity);
    text.add_hex(address, 16).add(" ").add(separator == nullptr ? path : separator + 1).add("+");
    text.add_hex(address - reinterpret_cast<std::uintptr_t>(module));
}

Failure write_dump(const DumpRequest& request) {
    const WriteDumpFunction write = load_dump_library();
    if (write == nullptr) return Failure::OTHER;
    const std::unique_lock guard(dump_lock, std::try_to_lock);
    if (!guard) return Failure::IN_USE;  // another thread writes one at this moment
    wchar_t path[MAX_PATH] = L"";
    to_wide(request.path, path, MAX_PATH);
    const HANDLE file =
        CreateFileW(path, GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return failure_of(GetLastError());
    const bool is_written = write_to(file, write, request);
    CloseHandle(file);
    if (is_written) return Failure::NONE;
    DeleteFileW(path);
    return Failure::OTHER;
}

const char* dump_ending() { return ".dmp"; }

bool install_crash_handler(CrashHandler handler) {
    CrashHandler none = nullptr;
    if (handler == nullptr || state.level_count == most_levels) return false;
    if (state.passed_slot == TLS_OUT_OF_INDEXES) state.passed_slot = TlsAlloc();
    if (load_dump_library() == nullptr || state.passed_slot == TLS_OUT_OF_INDEXES) return false;
    if (!state.handler.compare_exchange_strong(none, handler)) return false;
    state.reporter.store(0);
    CrashStack().keep();
    state.levels[state.level_count++] = {SetUnhandledExceptionFilter(on_exception), std::signal(SIGABRT, on_abort)};
    return true;
}

void remove_crash_handler() {
    if (state.handler.exchange(nullptr) == nullptr) return;
    const Level& before = state.levels[state.level_count - 1];
    const LPTOP_LEVEL_EXCEPTION_FILTER filter = SetUnhandledExceptionFilter(before.filter);
    const auto abort_handler = std::signal(SIGABRT, before.on_abort);
    if (filter == on_exception && abort_handler == on_abort) {
        --state.level_count;
        return;
    }
    // Whoever installed something since keeps it: it may call ours, which then does nothing but call the one before.
    SetUnhandledExceptionFilter(filter);
    std::signal(SIGABRT, abort_handler);
}

}  // namespace platform

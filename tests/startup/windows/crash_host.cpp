#include "tests/startup/child.h"

#include <windows.h>

namespace {

constexpr int longest_chain = 5;
int calls = 0;
LPTOP_LEVEL_EXCEPTION_FILTER before = nullptr;

LONG WINAPI say_and_end(EXCEPTION_POINTERS*) {
    constexpr char text[] = "the host's handler\n";
    DWORD written = 0;
    WriteFile(GetStdHandle(STD_OUTPUT_HANDLE), text, sizeof(text) - 1, &written, nullptr);
    TerminateProcess(GetCurrentProcess(), 7);
    return EXCEPTION_CONTINUE_SEARCH;
}

LONG WINAPI pass_on(EXCEPTION_POINTERS* pointers) {
    if (++calls > longest_chain) TerminateProcess(GetCurrentProcess(), 99);
    return before != nullptr ? before(pointers) : EXCEPTION_CONTINUE_SEARCH;
}

}  // namespace

void install_host_handler(bool chains) { before = SetUnhandledExceptionFilter(chains ? pass_on : say_and_end); }

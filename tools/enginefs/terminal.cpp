#include "terminal.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

// The tool's only look at a system by itself.
#if defined(_WIN32)
#include <fcntl.h>
#include <io.h>
#include <windows.h>
#else
#include <fcntl.h>
#include <unistd.h>
#endif

namespace {

#if defined(_WIN32)
constexpr int asking_to_end[] = {SIGINT, SIGTERM};
constexpr int closed_pipe = 0;  // writing just fails
#else
constexpr int closed_pipe = SIGPIPE;  // nobody reads any more what is told
constexpr int asking_to_end[] = {SIGINT, SIGTERM, SIGHUP /* the terminal was closed */, closed_pipe};
#endif
volatile std::sig_atomic_t requests = 0;  // a signal handler may touch nothing else
int depth = 0;

void remember(int number) {
    requests = 1;
    if (number != closed_pipe) std::signal(number, SIG_DFL);  // what is told meanwhile would end it half-way
}

/// What is ignored, as behind nohup, stays so.
void handle_requests(void (*handler)(int)) {
    for (const int number : asking_to_end)
        if (std::signal(number, handler) == SIG_IGN) std::signal(number, SIG_IGN);
}

}  // namespace

void prepare_streams() {
#if defined(_WIN32)
    _setmode(1, _O_BINARY);
    // Text is UTF-8, as the manifest says of arguments; a console that went on with another page would show it wrong.
    static const UINT before = GetConsoleOutputCP();
    SetConsoleOutputCP(CP_UTF8);
    std::atexit([] { SetConsoleOutputCP(before); });
#else
    int descriptor = open("/dev/null", O_RDONLY);
    while (descriptor >= 0 && descriptor <= 2) descriptor = open("/dev/null", O_RDONLY);
    if (descriptor > 2) close(descriptor);
    // A file that grows past the shell's limit is a full disk, told and cleaned up as one.
    std::signal(SIGXFSZ, SIG_IGN);
#endif
}

bool is_terminal(int stream) { return isatty(stream) != 0; }

bool shows_colors(int stream) {
    if (!is_terminal(stream)) return false;
#if defined(_WIN32)
    const HANDLE console = GetStdHandle(stream == 1 ? STD_OUTPUT_HANDLE : STD_ERROR_HANDLE);
    DWORD mode = 0;
    return GetConsoleMode(console, &mode) != 0 &&
           SetConsoleMode(console, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING) != 0;
#else
    const char* const kind = std::getenv("TERM");
    return kind != nullptr && std::strcmp(kind, "dumb") != 0;
#endif
}

Interruption::Interruption() {
    if (depth++ == 0) handle_requests(remember);
}

Interruption::~Interruption() {
    if (--depth == 0) handle_requests(SIG_DFL);
}

bool Interruption::requested() { return requests != 0; }

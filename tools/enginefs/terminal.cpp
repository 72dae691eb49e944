#include "terminal.h"

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

// The tool's only look at a system by itself.
#if defined(_WIN32)
#include <fcntl.h>
#include <io.h>
#include <windows.h>
#else
#include <unistd.h>

#include <csignal>
#endif

#include "names.h"

namespace {

constexpr std::uint64_t first_drawing_ms = 500;  // quick work shows nothing
constexpr std::uint64_t redraw_ms = 100;

std::uint64_t now_ms() {
    const auto since = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(since).count());
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

Progress::Progress(const std::string& label, std::uint64_t total, bool bytes)
    : label_(printable(label)),
      total_(total == failed ? 0 : total),
      bytes_(bytes),
      watched_(is_terminal(2)),
      start_ms_(now_ms()) {}

Progress::~Progress() {
    if (drawn_) std::fprintf(stderr, "\r%79s\r", "");
}

void Progress::add(std::uint64_t amount) {
    done_ += amount;
    if (!watched_) return;
    const std::uint64_t now = now_ms();
    if (now - start_ms_ < first_drawing_ms || now - drawn_ms_ < redraw_ms) return;
    drawn_ms_ = now;
    draw(now);
}

void Progress::draw(std::uint64_t now) {
    const double seconds = static_cast<double>(now - start_ms_) / 1000.0;
    const double rate = static_cast<double>(done_) / seconds;
    std::string line = label_ + ": " + amount_text(static_cast<double>(done_));
    if (total_ != 0) line += " of " + amount_text(static_cast<double>(total_));
    line += ", " + amount_text(rate) + "/s";
    if (total_ > done_ && rate > 0) {
        const auto left = std::lround(static_cast<double>(total_ - done_) / rate);
        line += ", " + std::to_string(left) + " s left";
    }
    std::fprintf(stderr, "\r%-79.79s", line.c_str());
    drawn_ = true;
}

std::string Progress::amount_text(double amount) const {
    char text[40];
    if (!bytes_)
        std::snprintf(text, sizeof text, "%.0f", amount);
    else if (amount < 1024.0 * 1024.0)
        std::snprintf(text, sizeof text, "%.0f KiB", amount / 1024.0);
    else
        std::snprintf(text, sizeof text, "%.1f MiB", amount / (1024.0 * 1024.0));
    return text;
}

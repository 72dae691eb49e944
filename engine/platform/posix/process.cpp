#include "engine/platform/process.h"

#include <fcntl.h>
#include <malloc.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <thread>

namespace platform {

namespace {

// What the kernel tells about this process. Each text is read when it is first asked for and never freed: whoever
// runs at the very end of the process may still use it.
struct ProcessFacts {
    std::once_flag paths_once;
    char path[4096] = "";
    char directory[4096] = "./";
    std::once_flag command_line_once;
    const char* command_line = "";
};

ProcessFacts& facts() {
    static constinit ProcessFacts process_facts;
    return process_facts;
}

void read_paths(ProcessFacts& out) {
    const ssize_t length = readlink("/proc/self/exe", out.path, sizeof out.path - 1);
    if (length <= 0) return;
    out.path[length] = '\0';
    const char* const slash = std::strrchr(out.path, '/');
    if (slash == nullptr) return;
    const auto directory_length = static_cast<std::size_t>(slash - out.path) + 1;
    std::memcpy(out.directory, out.path, directory_length);
    out.directory[directory_length] = '\0';
}

ssize_t read_some(int descriptor, char* buffer, std::size_t size) {
    ssize_t got = 0;
    do got = read(descriptor, buffer, size);
    while (got < 0 && errno == EINTR);
    return got;
}

// The whole of a file whose length the kernel does not tell beforehand, with a terminator; null when it can't be had.
char* read_proc_file(const char* path, std::size_t& length) {
    const int descriptor = open(path, O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) return nullptr;
    char* text = nullptr;
    length = 0;
    for (std::size_t capacity = 4096;; capacity *= 2) {
        char* const larger = static_cast<char*>(std::realloc(text, capacity));
        if (larger == nullptr) break;
        text = larger;
        ssize_t got = 0;
        while (length < capacity - 1 && (got = read_some(descriptor, text + length, capacity - 1 - length)) > 0) {
            length += static_cast<std::size_t>(got);
        }
        if (got <= 0) break;
    }
    close(descriptor);
    if (text != nullptr) text[length] = '\0';
    return text;
}

void read_command_line(ProcessFacts& out) {
    std::size_t length = 0;
    char* const text = read_proc_file("/proc/self/cmdline", length);
    if (text == nullptr) return;
    // Each argument ends in a zero; the last one's ends the text.
    for (std::size_t at = 0; at + 1 < length; ++at) {
        if (text[at] == '\0') text[at] = ' ';
    }
    out.command_line = text;
}

// Lets nobody's end of a pipe end this process: the signal of one failed write is taken back.
class BrokenPipeGuard {
public:
    BrokenPipeGuard() {
        sigemptyset(&broken_pipe_);
        sigaddset(&broken_pipe_, SIGPIPE);
        sigset_t pending;
        sigpending(&pending);
        was_pending_ = sigismember(&pending, SIGPIPE) == 1;
        pthread_sigmask(SIG_BLOCK, &broken_pipe_, &before_);
    }
    BrokenPipeGuard(const BrokenPipeGuard&) = delete;
    BrokenPipeGuard& operator=(const BrokenPipeGuard&) = delete;
    ~BrokenPipeGuard() {
        const timespec no_wait{};
        if (raised_ && !was_pending_) sigtimedwait(&broken_pipe_, nullptr, &no_wait);
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    }
    void raised() { raised_ = true; }

private:
    sigset_t broken_pipe_{};
    sigset_t before_{};
    bool was_pending_ = false;
    bool raised_ = false;
};

bool wait_writable(int descriptor) {
    pollfd item{.fd = descriptor, .events = POLLOUT, .revents = 0};
    return poll(&item, 1, -1) >= 0 || errno == EINTR;
}

void write_all(int descriptor, const char* text, std::size_t length) {
    BrokenPipeGuard guard;
    while (length != 0) {
        const ssize_t written = write(descriptor, text, length);
        if (written >= 0) {
            text += written;
            length -= static_cast<std::size_t>(written);
            continue;
        }
        if (errno == EINTR || (errno == EAGAIN && wait_writable(descriptor))) continue;
        if (errno == EPIPE) guard.raised();
        return;
    }
}

// Standard output is told from "none" by an address; the descriptor itself may be 0.
constexpr int output_descriptor = STDOUT_FILENO;

}  // namespace

const char* executable_path() {
    ProcessFacts& process = facts();
    std::call_once(process.paths_once, read_paths, process);
    return process.path;
}

const char* executable_directory() {
    ProcessFacts& process = facts();
    std::call_once(process.paths_once, read_paths, process);
    return process.directory;
}

const char* command_line() {
    ProcessFacts& process = facts();
    std::call_once(process.command_line_once, read_command_line, process);
    return process.command_line;
}

void exit_process(int code) { _exit(code & 0xFF); }

Answer show_message(const char* text, const char* caption, std::uint32_t /*style*/, Answer fallback) {
    std::fprintf(stderr, "%s: %s\n", caption, text);
    return fallback;
}

void* standard_output() {
    if (fcntl(output_descriptor, F_GETFD) < 0) return nullptr;
    return const_cast<int*>(&output_descriptor);
}

void write_console(void* console, const char* text, std::size_t length) {
    if (console != nullptr) write_all(*static_cast<const int*>(console), text, length);
}

bool is_debugger_present() {
    std::size_t length = 0;
    char* const status = read_proc_file("/proc/self/status", length);
    if (status == nullptr) return false;
    const char* const tracer = std::strstr(status, "TracerPid:");
    const bool traced = tracer != nullptr && std::strtol(tracer + std::strlen("TracerPid:"), nullptr, 10) != 0;
    std::free(status);
    return traced;
}

std::uint32_t process_id() { return static_cast<std::uint32_t>(getpid()); }

std::uint32_t processor_count() {
    const unsigned count = std::thread::hardware_concurrency();
    return count == 0 ? 1 : count;
}

void trim_heap() { malloc_trim(0); }

}  // namespace platform

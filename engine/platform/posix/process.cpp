// The end of the process, its console, and companion modules.
#include "engine/platform/process.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <mutex>

#include "engine/platform/posix/system.h"
#include "engine/platform/text.h"
#include "engine/platform/threads.h"

namespace platform {
namespace {

/// Lets nobody's end of a pipe end this process: the signal of one failed write is taken back.
class BrokenPipeGuard {
public:
    BrokenPipeGuard() {
        sigset_t pending;
        sigemptyset(&broken_pipe_);
        sigaddset(&broken_pipe_, SIGPIPE);
        sigpending(&pending);
        was_pending_ = sigismember(&pending, SIGPIPE) == 1;
        pthread_sigmask(SIG_BLOCK, &broken_pipe_, &before_);
    }
    BrokenPipeGuard(const BrokenPipeGuard&) = delete;
    BrokenPipeGuard& operator=(const BrokenPipeGuard&) = delete;
    ~BrokenPipeGuard() {
        const timespec no_wait{};
        if (is_raised_ && !was_pending_) sigtimedwait(&broken_pipe_, nullptr, &no_wait);
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    }
    void raised() { is_raised_ = true; }

private:
    sigset_t broken_pipe_{};
    sigset_t before_{};
    bool was_pending_ = false;
    bool is_raised_ = false;
};

bool wait_writable(int descriptor) {
    pollfd item{.fd = descriptor, .events = POLLOUT, .revents = 0};
    return retry_interrupted([&] { return ::poll(&item, 1, -1); }) >= 0;
}

/// Standard output is told from "none" by an address; the descriptor itself may be 0.
constexpr int output_descriptor = STDOUT_FILENO;

// One thread at a time is in the loader. It has a lock of its own, but one that race detectors do not see.
Mutex loader_lock;

// A Module is the loader's own handle: there is no object of this type.
Module* open_module(const char* directory, const char* name) {
    char path[4096];
    const BoundedText text = BoundedText(path).add(directory).add("lib").add(name).add(".so");
    return text.is_cut() ? nullptr : static_cast<Module*>(dlopen(path, RTLD_NOW | RTLD_LOCAL));
}

}  // namespace

void exit_process(int code) { ::_exit(code & 0xFF); }

Answer show_message(const char* text, const char* caption, std::uint32_t /*style*/, Answer fallback) {
    std::fprintf(stderr, "%s: %s\n", caption, text);
    return fallback;
}

void* standard_output() {
    return ::fcntl(output_descriptor, F_GETFD) < 0 ? nullptr : const_cast<int*>(&output_descriptor);
}

void write_console(void* console, const char* text, std::size_t length) {
    if (console == nullptr) return;
    const int descriptor = *static_cast<const int*>(console);
    BrokenPipeGuard guard;
    while (length != 0) {
        const auto written = retry_interrupted([&] { return ::write(descriptor, text, length); });
        if (written < 0 && errno == EAGAIN && wait_writable(descriptor)) continue;
        if (written < 0 && errno == EPIPE) guard.raised();
        if (written <= 0) return;
        text += written;
        length -= static_cast<std::size_t>(written);
    }
}

std::uint32_t process_id() { return static_cast<std::uint32_t>(::getpid()); }

Module* load_module(const char* name) {
    const std::lock_guard guard(loader_lock);
    Module* const beside = open_module(executable_directory(), name);
    return beside != nullptr ? beside : open_module("", name);
}

void* find_symbol(Module* module, const char* name) { return dlsym(module, name); }

void unload_module(Module* module) {
    const std::lock_guard guard(loader_lock);
    dlclose(module);
}

}  // namespace platform

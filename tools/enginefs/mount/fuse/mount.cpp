// The command itself: what must hold before a view is shown, and its life in the background.

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <system_error>

#include "mount/fuse/view.h"

namespace {

namespace stdfs = std::filesystem;

/// What a mount point would hide could be what a source reads.
bool check_place(const std::string& told, const std::string& full) {
    std::error_code error;
    const stdfs::file_type type = stdfs::status(fs::to_path(full), error).type();
    if (error == std::errc::not_connected)
        return fail(told, "the process of a view there was killed; fusermount3 -u " + told + " clears it away");
    if (type == stdfs::file_type::not_found || (!error && type != stdfs::file_type::directory))
        return fail(told, "there is no such directory");
    const bool is_empty = !error && stdfs::is_empty(fs::to_path(full), error);
    if (error) return fail(told, "it cannot be read: " + error.message());
    return is_empty || fail(told, "it is not empty");
}

/// Goes on in a process of its own, without the standard streams of this one from `told` on. The caller's process waits and
/// ends with status 0 when it is told that all is well, and with 1 when the other one ends before.
class Detached {
public:
    /// False, with a word on standard error, when the system starts no process.
    bool start() {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) return fail("--detach", std::strerror(errno));
        std::fflush(stdout);
        const pid_t child = fork();
        if (child < 0) return fail("--detach", std::strerror(errno));
        if (child == 0) {
            close(ends[0]);
            pipe_ = ends[1];
            return true;
        }
        close(ends[1]);
        char is_good = 0;
        while (::read(ends[0], &is_good, 1) < 0 && errno == EINTR) {
        }
        _exit(is_good != 0 ? exit_ok : exit_failed);
    }

    /// All is well. Nothing happens in a process that was not started so.
    void tell() {
        if (pipe_ < 0) return;
        setsid();  // until now what ends the caller ends this process too
        if (chdir("/") != 0) note("--detach", std::strerror(errno));
        const int nowhere = ::open("/dev/null", O_RDWR | O_CLOEXEC);
        for (int stream = 0; nowhere >= 0 && stream <= 2; ++stream) dup2(nowhere, stream);
        if (nowhere > 2) close(nowhere);
        const char is_good = 1;
        while (::write(pipe_, &is_good, 1) < 0 && errno == EINTR) {
        }
        close(pipe_);
        pipe_ = -1;
    }

private:
    int pipe_ = -1;
};

}  // namespace

bool mount(const Mounting& given) {
    if (!check_place(given.place, full_native_path(given.place))) return false;
    Detached detached;  // before anything has a thread, since only one goes along
    if (given.detach && !detached.start()) return false;
    // Names of the table alone: the disk itself must not answer for one that is gone.
    SessionOptions options = *given.session;
    options.fallback = false;
    Session session;
    if (!session.mount(options)) return false;
    Sources sources(options);
    if (given.follow && !watch_sources()) return false;
    const std::shared_ptr<const Table> table = sources.table();
    for (const std::string& hidden : table->hidden())
        note(hidden, hidden.ends_with('/') ? "a file of an earlier source hides this directory"
                                           : "a directory of an earlier source hides this file");
    NextTable next = nullptr;
    if (given.follow)
        next = [&](const Table& before) { return sources.changes(before); };
    else
        sources.forget();
    return show_view(table, given, next, [&] {
        print(given.place + ": " + counted(table->files(), "file", "files") + "\n");
        finish_output(exit_ok);
        detached.tell();
    });
}

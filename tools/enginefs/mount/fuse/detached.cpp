#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "mount/view.h"
#include "report.h"

bool Detached::start() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return fail("--detach", std::strerror(errno));
    std::fflush(stdout);
    const pid_t child = fork();
    if (child < 0) return fail("--detach", std::strerror(errno));
    if (child == 0) {
        close(ends[0]);
        pipe_ = ends[1];
        setsid();
        return true;
    }
    close(ends[1]);
    char is_good = 0;
    while (::read(ends[0], &is_good, 1) < 0 && errno == EINTR) {
    }
    _exit(is_good != 0 ? exit_ok : exit_failed);
}

void Detached::tell() {
    if (pipe_ < 0) return;
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

#include "tests/startup/child.h"

#include <unistd.h>

#include <csignal>

namespace {

constexpr int longest_chain = 5;
int calls = 0;
struct sigaction before;

void say_and_end(int) {
    constexpr char text[] = "the host's handler\n";
    if (write(STDOUT_FILENO, text, sizeof(text) - 1) < 0) _exit(1);
    _exit(7);
}

void pass_on(int number, siginfo_t* info, void* context) {
    if (++calls > longest_chain) _exit(99);
    if ((before.sa_flags & SA_SIGINFO) != 0) before.sa_sigaction(number, info, context);
}

}  // namespace

void install_host_handler(bool chains) {
    struct sigaction action {};
    action.sa_flags = chains ? SA_SIGINFO : 0;
    if (chains) action.sa_sigaction = pass_on;
    if (!chains) action.sa_handler = say_and_end;
    sigaction(SIGSEGV, &action, &before);
}

#include "interruption.h"

#include <csignal>

namespace {

constexpr int asking[] = {
    SIGINT, SIGTERM,
#if defined(SIGHUP)
    SIGHUP  // the terminal was closed
#endif
};
volatile std::sig_atomic_t requests = 0;  // a signal handler may touch nothing else
int depth = 0;

void remember(int number) {
    requests = 1;
    std::signal(number, SIG_DFL);
}

}  // namespace

Interruption::Interruption() {
    if (depth++ != 0) return;
    for (const int number : asking) {
        if (std::signal(number, remember) == SIG_IGN) std::signal(number, SIG_IGN);
    }
}

Interruption::~Interruption() {
    if (--depth != 0) return;
    for (const int number : asking) {
        if (std::signal(number, SIG_DFL) == SIG_IGN) std::signal(number, SIG_IGN);
    }
}

bool Interruption::requested() { return requests != 0; }

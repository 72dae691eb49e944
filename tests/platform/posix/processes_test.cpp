#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "tests/platform/other_process.h"

namespace {

using namespace platform;

class ForkedProcesses : public disk::DiskTest {};

TEST_F(ForkedProcesses, LoseNoLockAndKeepNone) {
    disk::put("file", "");
    for (const Access access : {Access::READ, Access::WRITE}) {
        SCOPED_TRACE(static_cast<int>(access));
        OtherProcess other;
        const auto other_writes = [&] { return other.open(Access::WRITE, Disposition::OPEN_EXISTING, Sharing::READ); };
        File file = File::open("file", {.access = access});
        const pid_t heir = ::fork();  // has the descriptor as long as it lives
        if (heir == 0) {
            for (;;) ::pause();
        }
        const pid_t short_lived = ::fork();
        if (short_lived == 0) {
            file.close();
            ::_exit(0);
        }
        ::waitpid(short_lived, nullptr, 0);
        EXPECT_EQ(other_writes(), Failure::IN_USE) << "a child has closed its copy";
        file.close();
        EXPECT_EQ(other_writes(), Failure::NONE) << "a child has its copy still";
        ::kill(heir, SIGKILL);
        ::waitpid(heir, nullptr, 0);
    }
}

}  // namespace

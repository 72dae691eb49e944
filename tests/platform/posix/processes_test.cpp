#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "tests/platform/disk.h"

// Files that several processes have open.

namespace {

using namespace platform;

constexpr OpenOptions reading{};
constexpr OpenOptions alone{.sharing = Sharing::NONE};
constexpr OpenOptions writing{.access = Access::WRITE};
constexpr OpenOptions creating{.access = Access::WRITE, .disposition = Disposition::CREATE_ALWAYS};

Failure try_open(const OpenOptions& options) {
    return File::open("file", options).valid() ? Failure::NONE : last_error().failure;
}

/// Started before the test opens anything: what a process that has nothing to do with ours does with "file".
class OtherProcess {
public:
    OtherProcess() {
        int ends[2];
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) return;
        id_ = ::fork();
        if (id_ == 0) serve(ends[1]);
        ::close(ends[1]);
        line_ = ends[0];
    }
    OtherProcess(const OtherProcess&) = delete;
    OtherProcess& operator=(const OtherProcess&) = delete;
    ~OtherProcess() {
        ::close(line_);
        end();
    }

    Failure open(const OpenOptions& options) {
        Failure answer = Failure::OTHER;
        ::write(line_, &options, sizeof options);
        return ::read(line_, &answer, sizeof answer) == sizeof answer ? answer : Failure::OTHER;
    }
    void end() {
        if (id_ > 0) ::kill(id_, SIGKILL);
        if (id_ > 0) ::waitpid(id_, nullptr, 0);
        id_ = -1;
    }

private:
    /// Each open closes the file of the one before it.
    [[noreturn]] static void serve(int line) {
        OpenOptions options;
        File file;
        while (::read(line, &options, sizeof options) == sizeof options) {
            file.close();
            file = File::open("file", options);
            const Failure answer = file.valid() ? Failure::NONE : last_error().failure;
            ::write(line, &answer, sizeof answer);
        }
        ::_exit(0);
    }

    int line_ = -1;
    pid_t id_ = -1;
};

class Processes : public disk::DiskTest {
protected:
    void SetUp() override {
        DiskTest::SetUp();
        disk::put("file", "content");
    }
};

TEST_F(Processes, ShareAFileAmongReadersOnly) {
    const struct {
        const char* label;
        OpenOptions theirs;
        OpenOptions ours;
        Failure expected;
    } rows[] = {
        {"reader, reader", reading, reading, Failure::NONE},
        {"reader, writer", reading, writing, Failure::IN_USE},
        {"reader, create", reading, creating, Failure::IN_USE},
        {"writer, reader", writing, reading, Failure::IN_USE},
        {"writer, writer", writing, writing, Failure::IN_USE},
        {"writer, create", writing, creating, Failure::IN_USE},
        {"a reader that shares with nobody does so in its own process", alone, reading, Failure::NONE},
    };
    OtherProcess other;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.label);
        ASSERT_EQ(other.open(row.theirs), Failure::NONE);
        EXPECT_EQ(try_open(row.ours), row.expected);
        EXPECT_EQ(disk::get("file"), "content");
    }
    ASSERT_EQ(other.open(writing), Failure::NONE);
    other.end();
    EXPECT_EQ(try_open(writing), Failure::NONE) << "whoever ends holds nothing";
}

TEST_F(Processes, LoseNoLockAndKeepNoneByAFork) {
    const struct {
        const char* label;
        OpenOptions ours;
    } rows[] = {{"reader", reading}, {"writer", writing}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.label);
        OtherProcess other;
        File file = File::open("file", row.ours);
        const OtherProcess heir;  // has the descriptor as long as it lives
        const pid_t short_lived = ::fork();
        if (short_lived == 0) {
            file.close();
            ::_exit(0);
        }
        ::waitpid(short_lived, nullptr, 0);
        EXPECT_EQ(other.open(writing), Failure::IN_USE) << "a child has closed its copy";
        file.close();
        EXPECT_EQ(other.open(writing), Failure::NONE) << "a child has its copy still";
    }
}

}  // namespace

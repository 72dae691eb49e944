#include "tests/platform/other_process.h"

// Files that several processes have open.

namespace {

using namespace platform;

constexpr OpenOptions reading{};
constexpr OpenOptions alone{.sharing = Sharing::NONE};
constexpr OpenOptions writing{.access = Access::WRITE};
constexpr OpenOptions creating{.access = Access::WRITE, .disposition = Disposition::CREATE_ALWAYS};
#ifdef _WIN32
constexpr Failure beside_alone = Failure::IN_USE;
#else
constexpr Failure beside_alone = Failure::NONE;  // it shares with nobody of its own process
#endif

TEST(OtherProcess, DISABLED_Serve) {
    std::filesystem::current_path(child_root());
    OtherProcess::serve();
}

class Processes : public disk::DiskTest {};

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
        {"reader that is alone, reader", alone, reading, beside_alone},
    };
    disk::put("file", "content");
    OtherProcess other;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.label);
        ASSERT_EQ(other.open(row.theirs.access, row.theirs.disposition, row.theirs.sharing), Failure::NONE);
        const File ours = File::open("file", row.ours);
        EXPECT_EQ(ours.valid() ? Failure::NONE : last_error().failure, row.expected);
        EXPECT_EQ(std::filesystem::file_size("file"), 7u);
    }
    ASSERT_EQ(other.open(Access::WRITE, Disposition::OPEN_EXISTING, Sharing::READ), Failure::NONE);
    other.end();
    EXPECT_TRUE(File::open("file", writing).valid()) << "whoever ends holds nothing";
}

}  // namespace

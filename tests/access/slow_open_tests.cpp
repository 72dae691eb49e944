#include <engine/filesystem/contract/locating_source.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <future>
#include <thread>

#include "engine/filesystem/contract/error.h"
#include "engine/filesystem/registry/registry.h"
#include "tests/access/kit.h"

namespace {

/// Stands in the midst of the open of "slow.bin" until it is let go.
class SlowDisk final : public fs::IFsMonitor {
public:
    SlowDisk() { fs::set_monitor(this); }
    ~SlowDisk() { fs::set_monitor(nullptr); }
    void touch_file(const char* path, EFSMode::TYPE, FFSOpenFlags::FLAGS) override {
        if (!std::string(path).ends_with("slow.bin")) return;
        reached.Set();
        go.Wait();
        could_remove = removes != nullptr && fs::rem_source(removes);
    }

    mt::CEvent reached{true};
    mt::CEvent go{true};
    CFSSource* removes = nullptr;  // by the thread that opens
    bool could_remove = false;
};

std::future<bool> begin(std::function<bool()> call) { return std::async(std::launch::async, std::move(call)); }
/// Whether it ends while the disk stands still.
bool has_ended(const std::future<bool>& call) {
    return call.wait_for(std::chrono::seconds(5)) == std::future_status::ready;
}

CFSSource* find_source(const std::string& path) {
    const fs::registry::SharedGuard guard;
    return fs::registry::find(fs::path((path + '/').c_str(), true));
}

class SlowOpens : public MountedRoot {
protected:
    void SetUp() override {
        directory_.write("slow.bin", "slow");
        directory_.write("other.bin", "other");
        MountedRoot::SetUp();
    }
};

/// A writer of the list that waits shuts out those who ask for names: so nobody may hold its lock for as long as a disk takes.
TEST_F(SlowOpens, StopNoLookupWhenASourceIsAdded) {
    const std::string root_file = directory_ / "slow.bin";
    for (const char* path : {"slow.bin", root_file.c_str()}) {
        SlowDisk disk;
        std::future<bool> opened = begin([=] { return load(path) == "slow"; });
        ASSERT_TRUE(disk.reached.Wait(10'000));
        std::future<bool> added = begin([] { return mount_memory("/added/") != nullptr; });
        std::future<bool> asked = begin([] { return fs::exists("other.bin"); });
        EXPECT_TRUE(has_ended(added) && has_ended(asked)) << path;
        disk.go.Set();
        EXPECT_TRUE(opened.get() && added.get() && asked.get());
        EXPECT_TRUE(fs::rem_source("/added/"));
    }
}

TEST_F(SlowOpens, KeepTheirSource) {
    TempDirectory second;
    second.write("deep/slow.bin", "second");
    ASSERT_TRUE(fs::add_source(second.path().c_str(), whole_tree));
    SlowDisk disk;
    disk.removes = find_source(second.path());
    ASSERT_NE(disk.removes, nullptr);
    std::future<bool> opened = begin([] { return load("deep/slow.bin") == "second"; });
    ASSERT_TRUE(disk.reached.Wait(10'000));
    fs::refresh();
    std::future<bool> removed = begin([&] { return fs::rem_source(second.path().c_str()); });
    while (fs::exists("deep/slow.bin")) std::this_thread::yield();
    EXPECT_EQ(removed.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
    disk.go.Set();
    EXPECT_TRUE(opened.get() && removed.get());
    EXPECT_FALSE(disk.could_remove) << "it would wait for its own open";
}

/// Locates what it holds, and then fails to open it; meanwhile `act` runs on another thread.
class FailingSource final : public MemorySource, public fs::LocatingSource {
public:
    using MemorySource::MemorySource;
    Answer locate(const fs::path& p, FFSOpenFlags::FLAGS, Located&) override {
        return exists(p) ? Answer::LOCATED : Answer::NOT_HELD;
    }
    SFsFile* open_located(const fs::path&, FFSOpenFlags::FLAGS, const Located&) override {
        if (act) begin(act).get();
        fs::set_error(IO, "failing", "It cannot be read.");
        return nullptr;
    }

    std::function<bool()> act;
};

TEST_F(SlowOpens, ThatFailAreLookedForInTheSourcesBehind) {
    auto* const failing = new FailingSource("/failing/", EFSSourceType::PLS);
    failing->add("other.bin", "");
    failing->add("lost.bin", "");
    fs::add_source(failing, FFSAddSourceFlags::NONE);
    fs::clear_error();
    EXPECT_EQ(load("other.bin"), "other");
    EXPECT_EQ(fs::last_error().code, NONE) << "what failed on the way is forgotten";
    EXPECT_EQ(load("lost.bin"), "(none)");
    EXPECT_EQ(why(false), IO);
    // One that comes in front meanwhile is not asked; the one that was asked may be removed.
    failing->act = [] { return mount_memory("/front/", EFSSourceType::PLS)->add("other.bin", "front"), true; };
    EXPECT_EQ(load("other.bin"), "other");
    EXPECT_EQ(load("other.bin"), "front");
    EXPECT_TRUE(fs::rem_source("/front/"));
    std::future<bool> removed;
    failing->act = [&] {
        removed = begin([=] { return fs::rem_source("/failing/"); });
        while (find_source("/failing") != nullptr) std::this_thread::yield();
        return true;
    };
    EXPECT_EQ(load("other.bin"), "other");
    EXPECT_TRUE(removed.get());
}

/// Of a host's own class, which knows nothing of opens without the lock.
TEST_F(SlowOpens, LeaveADerivedSourceToItself) {
    class Derived final : public CWin32_dir {
    public:
        using CWin32_dir::CWin32_dir;
        SFsFile* open_read(const fs::path& p, FFSOpenFlags::FLAGS flags) override {
            ++opens;
            return CWin32_dir::open_read(p, flags);
        }
        int opens = 0;
    };
    auto* const derived = new Derived(EFSSourceType::PLS);
    ASSERT_TRUE(derived->init(fs::path((directory_.path() + '/').c_str(), true), whole_tree, nullptr));
    fs::add_source(derived, whole_tree);
    EXPECT_EQ(load("other.bin"), "other");
    EXPECT_EQ(derived->opens, 1);
}

}  // namespace

// What all sources together answer, who is asked, and what goes on while one of them is slow.
#include <engine/filesystem/contract/locating_source.h>
#include <engine/filesystem/sources/memory_archive.h>

#include <chrono>
#include <functional>
#include <future>
#include <thread>

#include "engine/filesystem/contract/failure.h"
#include "engine/filesystem/registry/registry.h"
#include "tests/access/kit.h"

namespace {

using testing::FieldsAre;
using testing::IsEmpty;
using Flags = FFSAddSourceFlags;

class Registry : public OverMemory {};

TEST_F(Registry, AsksByTypeAndTheNewestOfATypeFirstAndTheFallbackLast) {
    fs::registry::State& state = fs::registry::state();
    {
        const fs::registry::ExclusiveGuard guard;
        state.fallback = std::make_unique<MemorySource>("/fallback/", EFSSourceType::SPECIAL);
    }
    mount_memory("/Dir/", EFSSourceType::DIR);
    mount_memory("/root/", EFSSourceType::SPECIAL, Flags::AFTER_SAME_TYPE);
    for (const char* pack : {"/a.pak", "/b.pak"}) mount_memory(pack, EFSSourceType::PACK);
    for (const char* pack : {"/late.pak", "/last.pak"}) mount_memory(pack, EFSSourceType::PACK, Flags::AFTER_SAME_TYPE);
    mount_memory("/pls/", EFSSourceType::PLS);
    mount_memory("/new.pak", EFSSourceType::PACK);
    EXPECT_THAT(mounted_sources(), ElementsAre("/pls/", "/new.pak", "/b.pak", "/a.pak", "/late.pak", "/last.pak",
                                               "/root/", "/dir/", "/fallback/"));
    EXPECT_STREQ(fs::write_path(), "/pls/");
    EXPECT_FALSE(fs::source_exists("/fallback/") || fs::rem_source(state.fallback.get()));
    EXPECT_TRUE(fs::source_exists("/dir/") && fs::source_exists("/DIR/"));
    for (const char* other : {"/dir", "\\dir\\", "/dir/.", "", static_cast<const char*>(nullptr)})
        EXPECT_FALSE(fs::source_exists(other)) << "directories are taken as they are written";
}

TEST_F(Registry, GivesASourceBackWithoutDestroyingItAndForgetsItsTree) {
    MemorySource source("/x/", EFSSourceType::DIR, Flags::INDEX_NAMES);  // nobody could destroy it
    source.tree.set_name("tree");
    source.add("maps/big/a.txt", "");
    mount_memory("/hidden/")->add("secret/a.txt", "");
    EXPECT_FALSE(fs::rem_source(&source));
    for (int i = 0; i < 2; ++i) fs::add_source(&source, Flags::INDEX_NAMES);
    EXPECT_THAT(mounted_sources(), ElementsAre("/x/", "/hidden/"));
    ASSERT_NE(fs::search_dir("Maps\\BIG"), nullptr);
    EXPECT_STREQ(fs::search_dir("Maps\\BIG")->name(), "big");
    EXPECT_TRUE(fs::search_dir("secret") == nullptr && fs::search_dir(nullptr) == nullptr);
    EXPECT_STREQ(fs::search_dir("")->name(), "tree");  // an index without a name takes the first tree's
    EXPECT_TRUE(fs::rem_source(&source) && fs::rem_source("/hidden/"));
    EXPECT_FALSE(fs::rem_source(&source) || fs::rem_source(nullptr));
    EXPECT_THAT(mounted_sources(), IsEmpty());
    EXPECT_EQ(fs::search_dir("maps"), nullptr);
    EXPECT_STREQ(fs::search_dir("")->name(), "");
    fs::add_source(static_cast<CFSSource*>(nullptr), Flags::NONE);
    EXPECT_STREQ(fs::write_path(), "");
}

TEST_F(Registry, TellsWhoHoldsAName) {
    mount_memory("/a/")->add("x/y.txt", "");
    MemorySource* const shield = mount_memory("/b/", EFSSourceType::SPECIAL, Flags::PROTECTED);
    shield->add("x/y.txt", "");
    shield->is_writable = false;
    shield->is_shielding = true;
    ztl::vector<SFsSourceInfo> holders(3);
    fs::find_holders("X\\Y.txt", holders);
    EXPECT_THAT(holders, ElementsAre(FieldsAre("/b/", "", EFSSourceType::SPECIAL, Flags::PROTECTED, false, true, 0u),
                                     FieldsAre("/a/", "", EFSSourceType::DIR, Flags::NONE, true, false, 0u)));
    fs::find_holders(nullptr, holders);
    EXPECT_EQ(holders.size(), 0u);
}

/// Asks the file system for another name while it is being asked for one itself.
class AskingSource : public MemorySource {
public:
    using MemorySource::MemorySource;
    SFsFile* open_read(const fs::path& p, FFSOpenFlags::FLAGS flags) override {
        // A writer that waits meanwhile goes before new readers, and would wait for this one for ever.
        writers.emplace_back([] {
            fs::mark_installed(true);
            EXPECT_EQ(fs::last_error().code, NONE) << "of this thread alone, which does not hold the lock";
        });
        std::this_thread::yield();
        for (int i = 0; i < 1000; ++i) heard = fs::exists("other.txt") && heard;
        EXPECT_FALSE(fs::rem_file("other.txt") || fs::create_server_archive(nullptr, 0) || fs::get_server_archive());
        EXPECT_EQ(fs::last_error().code, INVALID_ARGUMENT);
        return MemorySource::open_read(p, flags);
    }
    bool heard = true;
    std::vector<std::thread> writers;
};

TEST_F(Registry, ASourceMayAskForNamesWhileItIsAsked) {
    auto* const source = new AskingSource("/asking/");
    for (const char* name : {"x.txt", "other.txt"}) source->add(name, "");
    fs::add_source(source, Flags::NONE);
    for (int round = 0; round < 20; ++round) EXPECT_EQ(load("x.txt"), "");
    for (std::thread& writer : source->writers) writer.join();
    EXPECT_TRUE(source->heard);
    EXPECT_EQ(source->content("other.txt"), "");
}

class Search : public OverMemory {};

TEST_F(Search, JoinsEverySourceIntoSortedUniqueNames) {
    EXPECT_EQ(fs::search(nullptr, nullptr, true, false), nullptr);
    MemorySource* const one = mount_memory("/one/");
    for (const char* name : {"b.txt", "maps/a.txt", "maps/deep/c.txt", "maps/x.bin"}) one->add(name, "");
    MemorySource* const two = mount_memory("/two/", EFSSourceType::DIR, Flags::INDEX_NAMES);
    for (const char* name : {"maps/a.txt", "maps/z.txt", "\xE4.txt"}) two->add(name, "");
    EXPECT_THAT(take_names(fs::search(nullptr, nullptr, false, false)),
                ElementsAre("b.txt", "maps/a.txt", "maps/deep/c.txt", "maps/x.bin", "maps/z.txt", "\xE4.txt"));
    EXPECT_THAT(take_names(fs::search("Maps\\", "*.TXT", false, false)), ElementsAre("maps/a.txt", "maps/z.txt"));
    EXPECT_THAT(take_names(fs::search("maps", "?.txt", true, false)),
                ElementsAre("maps/a.txt", "maps/deep/c.txt", "maps/z.txt"));
    EXPECT_THAT(take_names(fs::search("", "", false, false)), ElementsAre("b.txt", "\xE4.txt"));
    EXPECT_THAT(take_names(fs::search("maps", nullptr, false, true)), ElementsAre("maps/a.txt", "maps/z.txt"));
    EXPECT_EQ(fs::search("maps", "*.none", true, false), nullptr);
    EXPECT_EQ(fs::search(std::string(5000, 'd').c_str(), nullptr, true, false), nullptr);
    one->add(std::string(258, 'n'), "");
    ztl::vector<fs::string> native = {"kept"};
    fs::get_file_list(native);  // source by source
    EXPECT_THAT(native, ElementsAre("kept", "/two/maps/a.txt", "/two/maps/z.txt", "/two/\xE4.txt", "/one/b.txt",
                                    "/one/maps/a.txt", "/one/maps/deep/c.txt", "/one/maps/x.bin", ""));
}

TEST_F(Search, RefreshAsksTheSourcesConcernedAndRebuildsTheIndex) {
    MemorySource* const one = mount_memory("/data/one/", EFSSourceType::DIR, Flags::INDEX_NAMES);
    MemorySource* const pack = mount_memory("/data/p.pak", EFSSourceType::PACK);
    one->add("maps/x.txt", "");
    EXPECT_EQ(fs::search_dir("maps"), nullptr);
    fs::refresh();
    EXPECT_NE(fs::search_dir("maps"), nullptr);
    for (const char* path : {"/Data\\ONE/", "/data/p.pak", "Maps/", "none", "", "/", ".."}) fs::refresh(path);
    fs::refresh(nullptr);
    EXPECT_THAT(one->refreshed, ElementsAre("everything", "everything", "maps"));
    EXPECT_THAT(pack->refreshed, ElementsAre("everything", "everything"));
}

TEST_F(Search, TellsOfNamesThatMissTheirOverride) {
    MemorySource* const base = mount_memory("/base/");
    for (const char* name : {"a/x.dds", "a/y.dds", "b/z.txt"}) base->add(name, "");
    MemorySource* const patch = mount_memory("/patch/");
    for (const char* name : {"a/x.dds", "wrong/y.dds", "wrong/z.txt"}) patch->add(name, "");
    ztl::vector<fs::string> lines;
    fs::find_duplicates(lines, ".dds");
    EXPECT_THAT(
        lines, ElementsAre("0. wrong/y.dds", "1. a/y.dds (different path when overriding in other filesystem source)"));
    fs::find_duplicates(lines, nullptr);
    EXPECT_EQ(lines.size(), 6u) << "behind those that were there";
}

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

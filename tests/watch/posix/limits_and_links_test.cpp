#include <sched.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/watch/kit.h"

namespace {

namespace disk = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr int not_available = 77;

bool says(const char* part) { return fs::last_error().text.find(part) != std::string::npos; }

/// What `check` answers in a child whose user has this limit of the system lowered.
int check_with_limit(const std::string& limit, const std::string& value, const std::function<int()>& check) {
    const pid_t child = fork();
    if (child == 0) {
        const bool is_lowered = unshare(CLONE_NEWUSER) == 0 && write_file("/proc/sys/user/" + limit, value);
        _exit(is_lowered ? check() : not_available);
    }
    int status = -1;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(WatchLimits, AreToldByTheirNamesAndStopNoMount) {
    const TempDirectory root;
    for (const char* name : {"a/x", "b/x", "c/x"}) root.write(name, "");
    const auto start = [&] {
        return fs::init({.root = root.path().c_str(), .use_fallback = false}) && fs::exists("a/x");
    };
    const auto watch = [&](const std::string& path) { return fs::watch(path.c_str(), true); };
    const int instances = check_with_limit("max_inotify_instances", "0", [&] {
        if (!start() || watch(root.path())) return 1;
        return says("fs.inotify.max_user_instances") ? 0 : 2;
    });
    if (instances == not_available) GTEST_SKIP() << "not available: user namespaces";
    EXPECT_EQ(instances, 0);
    const int watches = check_with_limit("max_inotify_watches", "3", [&] {
        ztl::vector<SFsChange> changes;
        if (!start() || watch(root.path()) || !says("fs.inotify.max_user_watches")) return 1;
        if (!fs::add_source((root / "a").c_str(), whole_tree) || !watch(root / "a"))
            return 2;  // the others were given back
        for (const char* name : {"a/n1/x", "a/n2/x", "a/n3/x"}) root.write(name, "");
        if (fs::poll_changes(changes, 0) || !says("fs.inotify.max_user_watches") || changes.size() != 3) return 3;
        root.write("a/n3/y", "");
        fs::poll_changes(changes, 0);
        return changes.size() == 1 && changes[0].name == "n3/y" ? 0 : 4;  // listed by each poll instead
    });
    EXPECT_EQ(watches, 0);
}

class WatchOnPosix : public MountedRoot {
protected:
    void SetUp() override {
        directory_.write("d/x.txt", "");
        Start();
        ASSERT_TRUE(fs::watch(directory_.path().c_str(), true));
        ASSERT_THAT(poll_now(), IsEmpty());
    }
    const TempDirectory outside_;
};

TEST_F(WatchOnPosix, FollowsLinksAndPassesOverWhatScansDo) {
    outside_.write("far/y.txt", "");
    mkfifo((directory_ / "pipe").c_str(), 0666);
    directory_.write("back\\slash", "");
    disk::create_symlink(directory_ / "nowhere", directory_ / "broken");
    disk::create_directory_symlink("..", directory_ / "d/up");
    EXPECT_THAT(poll_now(), IsEmpty());
    disk::create_directory_symlink(outside_ / "far", directory_ / "near");
    disk::create_symlink(outside_ / "far/y.txt", directory_ / "w.txt");
    EXPECT_THAT(poll_now(), ElementsAre("CREATED near/y.txt", "CREATED w.txt"));
    outside_.write("deep/z.txt", "");
    disk::create_directory_symlink(outside_ / "deep", outside_ / "far/sub");
    EXPECT_THAT(poll_now(), ElementsAre("CREATED near/sub/z.txt"));
    expect_as_mounted_anew(directory_);
    disk::remove(directory_ / "near");
    disk::remove(directory_ / "pipe");
    EXPECT_THAT(poll_now(), ElementsAre("REMOVED near/sub/z.txt", "REMOVED near/y.txt"));
    expect_as_mounted_anew(directory_);
    // What a link led to before is found behind another one again.
    disk::create_directory_symlink(outside_ / "far", directory_ / "near");
    EXPECT_THAT(poll_now(), ElementsAre("CREATED near/sub/z.txt", "CREATED near/y.txt"));
    expect_as_mounted_anew(directory_);
}

TEST_F(WatchOnPosix, KnowsTheFilesOfADirectoryThatMovedAndLosesALinkToIt) {
    disk::create_directory_symlink(directory_ / "d", directory_ / "link");
    EXPECT_THAT(poll_now(), ElementsAre("CREATED link/x.txt"));
    disk::rename(directory_ / "d", directory_ / "e");
    EXPECT_THAT(poll_now(), ElementsAre("REMOVED d/x.txt", "CREATED e/x.txt", "REMOVED link/x.txt"));
    expect_as_mounted_anew(directory_);
    directory_.write("e/x.txt", "1");
    EXPECT_THAT(poll_now(), ElementsAre("CONTENT e/x.txt"));
    disk::rename(directory_ / "e", directory_ / "E");
    EXPECT_THAT(poll_now(), ElementsAre("CONTENT e/x.txt"));
    expect_as_mounted_anew(directory_);
}

TEST_F(WatchOnPosix, TellsNamesThatDifferInCaseAsOne) {
    disk::rename(directory_ / "d/x.txt", directory_ / "d/X.TXT");
    EXPECT_THAT(poll_now(), ElementsAre("CONTENT d/x.txt"));
    expect_as_mounted_anew(directory_);
    disk::rename(directory_ / "d/X.TXT", directory_ / "d/x.txt");
    poll_now();
    directory_.write("D/X.txt", "upper");
    EXPECT_THAT(poll_now(), ElementsAre("CONTENT d/x.txt"));
    expect_as_mounted_anew(directory_);
    disk::remove_all(directory_ / "D");
    EXPECT_THAT(poll_now(), ElementsAre("CONTENT d/x.txt"));
    expect_as_mounted_anew(directory_);
    EXPECT_NE(fs::search_dir("d"), nullptr);
}

TEST_F(WatchOnPosix, OutlivesItsRoot) {
    disk::rename(directory_.path(), outside_ / "moved");
    EXPECT_THAT(poll_now(), ElementsAre("LOST "));
    EXPECT_FALSE(fs::exists("d/x.txt"));
    write_file(outside_ / "moved/d/x.txt", "elsewhere");
    EXPECT_THAT(poll_now(), IsEmpty());
    directory_.write("d/new.txt", "");
    EXPECT_THAT(poll_now(), ElementsAre("LOST "));
    EXPECT_TRUE(fs::exists("d/new.txt"));
    poll_now();
    directory_.write("d/new.txt", "more");
    EXPECT_THAT(poll_now(), ElementsAre("CONTENT d/new.txt"));
}

}  // namespace

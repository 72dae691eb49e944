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

TEST_F(Watch, FollowsLinksAndPassesOverWhatScansDo) {
    outside_.write("far/y.txt", "");
    outside_.write("deep/z.txt", "");
    mkfifo(at("pipe").c_str(), 0666);
    directory_.write("back\\slash", "");
    disk::create_symlink(at("nowhere"), at("broken"));
    disk::create_directory_symlink("..", at("d/up"));
    EXPECT_THAT(poll_now(), IsEmpty());
    disk::create_directory_symlink(outside_ / "far", at("near"));
    disk::create_symlink(outside_ / "far/y.txt", at("w.txt"));
    EXPECT_THAT(poll_now(), ElementsAre("CREATED near/y.txt", "CREATED w.txt"));
    disk::create_directory_symlink(outside_ / "deep", outside_ / "far/sub");
    expect_told({"CREATED near/sub/z.txt"});
    disk::remove(at("near"));
    disk::remove(at("pipe"));
    expect_told({"REMOVED near/sub/z.txt", "REMOVED near/y.txt"});
    // What a link led to before is found behind another one again.
    disk::create_directory_symlink(outside_ / "far", at("near"));
    expect_told({"CREATED near/sub/z.txt", "CREATED near/y.txt"});
}

TEST_F(Watch, KnowsTheFilesOfADirectoryThatMovedAndNamesThatDifferInCaseAsOne) {
    disk::remove_all(at("d/e"));
    disk::create_directory_symlink(at("d"), at("link"));
    expect_told({"REMOVED d/e/c.txt", "CREATED link/b.txt"});
    disk::rename(at("d"), at("e"));  // and the link leads nowhere
    expect_told({"REMOVED d/b.txt", "CREATED e/b.txt", "REMOVED link/b.txt"});
    directory_.write("e/b.txt", "1");
    expect_told({"CONTENT e/b.txt"});
    disk::rename(at("e"), at("E"));
    expect_told({"CONTENT e/b.txt"});
    disk::rename(at("E/b.txt"), at("E/B.TXT"));
    expect_told({"CONTENT e/b.txt"});
    directory_.write("e/B.txt", "another of this name");
    expect_told({"CONTENT e/b.txt"});
    disk::remove_all(at("e"));
    expect_told({"CONTENT e/b.txt"});
    EXPECT_NE(fs::search_dir("e"), nullptr);
}

TEST_F(Watch, OutlivesItsRoot) {
    disk::rename(directory_.path(), outside_ / "moved");
    EXPECT_THAT(poll_now(), ElementsAre("LOST "));
    EXPECT_FALSE(fs::exists("d/b.txt"));
    write_file(outside_ / "moved/d/b.txt", "elsewhere");
    EXPECT_THAT(poll_now(), IsEmpty());
    directory_.write("d/new.txt", "");
    EXPECT_THAT(poll_now(), ElementsAre("LOST "));
    EXPECT_TRUE(fs::exists("d/new.txt"));
    poll_now();
    directory_.write("d/new.txt", "more");
    EXPECT_THAT(poll_now(), ElementsAre("CONTENT d/new.txt"));
}

}  // namespace

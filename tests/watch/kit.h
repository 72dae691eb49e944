#pragma once

#include <chrono>
#include <map>
#include <thread>

#include "engine/filesystem/registry/registry.h"
#include "engine/platform/watcher.h"
#include "tests/sources/kit.h"
#include "tests/support/mounted_root.h"

/// "CREATED a/b.txt", with " shadowed" behind it where fs::open goes on answering another source.
inline std::string told(const SFsChange& change) {
    constexpr const char* kinds[] = {"CREATED", "CONTENT", "REMOVED", "LOST"};
    return std::string(kinds[change.kind]) + " " + change.name + (change.winner_changed ? "" : " shadowed");
}

/// Waits until the system has told of everything that was done before. Wine tells some time later, in order over all watches.
inline void catch_up() {
    if (!platform::Watcher::sees_below) return;
    const TempDirectory directory;
    platform::Watcher watcher;
    ASSERT_GE(watcher.add(directory.path().c_str(), false), 0);
    for (const char* const marker : {"first", "second"}) {
        directory.write(marker, "");
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        for (bool is_told = false; !is_told; std::this_thread::sleep_for(std::chrono::milliseconds(1))) {
            ASSERT_LT(std::chrono::steady_clock::now(), end) << "the system tells of nothing";
            watcher.drain([&](const platform::WatchEvent& event) { is_told |= event.name == marker; });
        }
    }
}

/// What one poll that waits for nothing answers.
inline std::vector<std::string> poll_now() {
    catch_up();
    ztl::vector<SFsChange> changes;
    EXPECT_TRUE(fs::poll_changes(changes, 0)) << fs::last_error().text;
    std::vector<std::string> lines;
    for (const SFsChange& change : changes) lines.push_back(told(change));
    return lines;
}

/// Every name of a source with the place of its file on the disk, and every directory of its tree with a 'd'.
inline std::multimap<std::string, std::string> contents(CWin32_dir& source, const std::string& root) {
    std::multimap<std::string, std::string> found;
    for (const std::string& name : all_names(source)) {
        char native[fs::path_capacity] = "";
        source.native_path(as_path(root + "/" + name), native, sizeof native);
        found.emplace(name, native);
    }
    std::vector<std::pair<const fs::idir*, std::string>> pending = {{source.dir_tree(), ""}};
    while (!pending.empty()) {
        const auto [node, path] = pending.back();
        pending.pop_back();
        for (const fs::idir* child = node->first_child(); child != nullptr; child = child->next_sibling()) {
            pending.emplace_back(child, path + child->name() + "/");
        }
        found.emplace(path, "d");
    }
    return found;
}

/// Whether the source of this directory is what a fresh mount of it would be.
inline void expect_as_mounted_anew(const TempDirectory& directory) {
    CWin32_dir fresh(EFSSourceType::DIR);
    ASSERT_TRUE(fresh.init(as_dir(directory.path()), whole_tree, nullptr));
    auto* const source = dynamic_cast<CWin32_dir*>(fs::registry::find(as_dir(directory.path())));
    ASSERT_NE(source, nullptr);
    EXPECT_THAT(contents(*source, directory.path()), testing::ContainerEq(contents(fresh, directory.path())));
}

/// A root with a few files, which is watched.
class Watch : public MountedRoot {
protected:
    void SetUp() override {
        for (const char* name : {"a.txt", "d/b.txt", "d/e/c.txt", "#x/h.txt"}) directory_.write(name, "old");
        Start();
        ASSERT_TRUE(fs::watch(directory_.path().c_str(), true)) << fs::last_error().text;
        ASSERT_THAT(poll_now(), testing::IsEmpty());
    }
    void TearDown() override {
        platform::clear_faults();
        MountedRoot::TearDown();
    }
    std::filesystem::path at(const std::string& name) const { return directory_ / name; }
    /// What happened since the last poll is told of so, once, and the source is as a fresh mount would be.
    void expect_told(const std::vector<std::string>& lines, int line = __builtin_LINE()) const {
        SCOPED_TRACE(line);
        EXPECT_EQ(poll_now(), lines);
        EXPECT_THAT(poll_now(), testing::IsEmpty());
        expect_as_mounted_anew(directory_);
    }

    const TempDirectory outside_;
};

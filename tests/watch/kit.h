#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "engine/filesystem/registry/registry.h"
#include "tests/sources/kit.h"
#include "tests/support/mounted_root.h"

/// "CREATED a/b.txt", with " shadowed" behind it where fs::open goes on answering another source.
inline std::string told(const SFsChange& change) {
    constexpr const char* kinds[] = {"CREATED", "CONTENT", "REMOVED", "LOST"};
    return std::string(kinds[change.kind]) + " " + change.name + (change.winner_changed ? "" : " shadowed");
}

/// What one poll that waits for nothing answers.
inline std::vector<std::string> poll_now() {
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
    EXPECT_EQ(contents(*source, directory.path()), contents(fresh, directory.path()));
}

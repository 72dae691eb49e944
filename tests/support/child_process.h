#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <vector>

/// Files by their names below a directory.
using FileTree = std::map<std::string, std::string>;

/// What can be tested once in a process only, or ends it, runs in a child: a disabled test of this same program.
struct ChildResult {
    int exit_code = -1;  // of a child that a signal ended: 128 and the signal
    std::string output;  // of both streams, without carriage returns
    FileTree files;      // that the child left in its root
};

/// Runs the disabled test `name` ("Suite.DISABLED_Name") with these further arguments on its command line, over a fresh
/// root that holds the files of `before`; the child finds it with child_root().
ChildResult run_child(const std::string& name, const std::string& arguments = "", const FileTree& before = {});

/// Runs as many such children at once, over a root that is there; the files stay in it.
std::vector<ChildResult> run_children(std::size_t count, const std::string& name, const std::filesystem::path& root,
                                      const std::string& arguments = "");

/// In a child: its root, absolute. Elsewhere "".
std::string child_root();

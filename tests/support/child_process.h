#pragma once

#include <filesystem>
#include <string>
#include <vector>

/// What can be tested once in a process only, or ends it, runs in a child: a disabled test of this same program.
struct ChildResult {
    int exit_code = -1;  // of a child that a signal ended: 128 and the signal
    std::string output;  // of both streams
};

/// Runs the disabled test `name` ("Suite.DISABLED_Name") with these further arguments on its command line. The child
/// finds `root` with child_root().
ChildResult run_child(const std::string& name, const std::filesystem::path& root, const std::string& arguments = "");

/// Runs as many such children at once.
std::vector<ChildResult> run_children(std::size_t count, const std::string& name, const std::filesystem::path& root,
                                      const std::string& arguments = "");

/// In a child: the directory that its parent gave it, absolute. Elsewhere "".
std::string child_root();

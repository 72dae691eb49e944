#pragma once

#include <cstddef>
#include <string>
#include <vector>

/// A tree of small files with names as a game's data has them; the same for the same size everywhere.
struct BenchTree {
    std::string root;                // full path, without a trailing "/"
    std::vector<std::string> names;  // relative to the root, lower case, in a random order
};

/// The tree of `directories` directories with 50 files each, below the system's folder for temporary files. It is made
/// at its first use and kept for the next run. Files have 4 KiB where `filled`, and are empty otherwise.
const BenchTree& bench_tree(std::size_t directories, bool filled);

/// The names of such a tree, without making it.
std::vector<std::string> bench_names(std::size_t directories);

/// The process's resident memory in bytes; 0 where the system does not tell.
std::size_t resident_bytes();

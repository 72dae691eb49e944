#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tree.h"

/// How packs are made.
struct Packing {
    std::string method = "deflate";
    int level = -1;  // the usual one of the method
    int worth = 3;
    std::string store;
    bool deterministic = false;
    bool split = false;
    std::uint64_t split_size = 0;  // 0: as much as a pack can hold

    bool splits() const { return split || split_size != 0; }
};

/// Drops from the names of a directory those of the packs that will be made, which may lie in it from before.
void leave_out_packs(std::vector<std::string>& names, const std::string& dir, const std::string& out,
                     const Packing& how);

/// Makes the pack `out`, or several, of these files of the tree, in their order, and says what came of it. None is put in
/// its place before all are whole. `total_bytes` is how many there are to read.
bool write_packs(const Tree& tree, const std::vector<std::string>& names, std::uint64_t total_bytes,
                 const std::string& out, const Packing& how);

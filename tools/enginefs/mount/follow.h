#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "mount/gather.h"
#include "session.h"

/// What has changed since the table before.
struct Batch {
    std::shared_ptr<const Table> table;    // null: nothing
    std::vector<std::uint64_t> rewritten;  // inodes whose bytes may be others now
};

/// Has the mounted sources follow the disk, and makes a new table of what has changed.
class Follower {
public:
    Follower(const SessionOptions& sources, std::vector<ListedPack> packs)
        : sources_(sources), packs_(std::move(packs)) {}

    /// False, with a word on standard error, when a source cannot be watched.
    bool start();
    Batch next(const Table& before);

private:
    bool reload(ListedPack& pack);

    const SessionOptions& sources_;
    std::vector<ListedPack> packs_;
    std::string said_;  // of the latest poll that failed
};

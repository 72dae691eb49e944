#pragma once

#include <map>
#include <memory>
#include <set>
#include <string>

#include <engine/filesystem.h>

#include "mount/view.h"
#include "session.h"

/// The mounted sources of a session: what they show, and what changes there.
/// Threads  one at a time.
class Sources {
public:
    explicit Sources(const SessionOptions& session) : session_(session) {}

    /// Every file, from the source that wins, and the directories. Throws CommandFailed when a pack cannot be listed.
    std::shared_ptr<const Table> table() { return next_table(nullptr, {}, false); }

    /// Has them follow the disk. False, with a word on standard error, when one cannot be watched.
    bool watch() const;
    /// What has changed on the disk. Asks it for no more than that.
    Batch changes(const Table& before);

private:
    using Entries = ztl::vector<SFsPackEntry>;

    std::shared_ptr<const Table> next_table(const Table* before, const std::set<std::string>& changed, bool is_lost);
    const Entries& entries_of(const std::string& pack);
    std::string spelled(const std::string& directory) const;

    const SessionOptions& session_;
    std::map<std::string, Entries> packs_;  // by their places
    std::string said_;                      // of the latest poll that failed
};

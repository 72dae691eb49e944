#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>

#include "mount/table.h"
#include "session.h"
#include "tree.h"

/// What the command "mount" is asked for.
struct Mounting {
    const SessionOptions* session = nullptr;
    std::string place;  // an empty directory
    std::uint64_t memory_mib = 64;
    bool detach = false;
    bool allow_other = false;
    bool follow = false;
};

/// Shows the merged files as a directory, for any program. False, with a word on standard error, when they cannot be shown.
bool mount(const Mounting& given);

/// The mounted sources of a session: what they show, and what changes there.
/// Threads  one at a time.
class Sources {
public:
    explicit Sources(const SessionOptions& session) : session_(session) {}

    /// Every file, from the source that wins, and the directories. Throws CommandFailed when a pack cannot be listed.
    /// Inodes are those of `before`.
    std::shared_ptr<const Table> table(const Table* before = nullptr);

    /// Gives up what packs list, which is not asked for again where nothing follows the disk.
    void forget() { packs_.clear(); }
    /// The table after what has changed on the disk, which is asked for no more than that; null where nothing has.
    std::shared_ptr<const Table> changes(const Table& before);

private:
    struct Pack {
        ztl::vector<SFsPackEntry> entries;
        std::uint32_t version = 0;
    };

    /// The table after changes of these names, which alone are asked for, unless a pack or a directory has come to light.
    std::shared_ptr<const Table> changed_table(const Table& before, const std::set<std::string>& changed);
    const Pack& listed(const std::string& pack);
    std::string spelled(const std::string& directory) const;

    const SessionOptions& session_;
    std::uint32_t version_ = 0;          // of what is looked at now
    std::map<std::string, Pack> packs_;  // by their places
    std::string said_;                   // of the latest poll that failed
};

/// The table after what has changed, or null, asked again and again by a thread of its own. Null: nothing ever does.
using NextTable = std::function<std::shared_ptr<const Table>(const Table& before)>;

/// Shows the mounted sources until a signal ends this process's work, or somebody unmounts them. `ready` is called once
/// they can be seen. False, with a word on standard error, when they cannot be shown.
bool show_view(std::shared_ptr<const Table> table, const Mounting& given, const NextTable& next,
               const std::function<void()>& ready);

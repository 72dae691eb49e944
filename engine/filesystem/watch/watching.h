#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include <engine/filesystem/contract/path.h>
#include <engine/filesystem/contract/source.h>
#include <engine/filesystem/watch.h>

#include "engine/platform/watcher.h"

// What follows the disk for a source, what it is given for that, and who asks it.

namespace fs {

class ChangeBatch;
class Watches;

/// When a name was touched, in milliseconds.
struct Touches {
    std::int64_t first = 0;
    std::int64_t last = 0;

    /// Whether it was quiet for so long, or has waited for ten times that.
    bool are_over(std::int64_t now, std::int64_t quiet) const {
        return now - last >= quiet || (now - first) / 10 >= quiet;
    }
};

/// Follows the disk for one source. Events only mark what they name; what became of it the disk tells in prepare, and apply
/// brings the source's table to that. Whatever throws loses no mark.
/// Threads  one at a time; the source stays for the length of a call.
class Follower {
public:
    Follower() = default;
    Follower(const Follower&) = delete;
    Follower& operator=(const Follower&) = delete;
    virtual ~Follower() = default;

    /// Begins to watch. False, with the failure stored, when not all can be watched; the follower is then destroyed.
    virtual bool begin(Watches& watches) = 0;
    /// `dir` is what the watch was added for.
    virtual void note(const std::string& dir, const platform::WatchEvent& event, std::int64_t now) noexcept = 0;
    /// Whether there is something to prepare, or left to apply.
    virtual bool is_marked() const = 0;
    /// Looks at the disk for what is marked and, `quiet` being over, due. Without the registry's lock, which it may take
    /// shared. False, with the failure stored, when something could not be looked at.
    virtual bool prepare(std::int64_t now, std::int64_t quiet) = 0;
    /// Whether there is something to apply.
    virtual bool is_prepared() const = 0;
    /// Under the registry's exclusive lock.
    virtual void apply(ChangeBatch& batch) = 0;
};

/// The watches of all followers. Several may watch one directory, and one of them by two ways.
class Watches {
    struct End {
        Watches* watches = nullptr;
        std::int64_t number = -1;
        void operator()(const std::string* dir) const noexcept { watches->remove(number, dir); }
    };

public:
    /// A watch, which ends with it.
    using Watch = std::unique_ptr<const std::string, End>;

    /// Has events of `directory` told to the follower as those of `dir`, which stays where it is for as long. Null, with
    /// the failure stored, when the system does not watch it. May throw std::bad_alloc.
    [[nodiscard]] Watch add(const char* directory, bool tells_gone, Follower& follower, const std::string& dir);
    /// Hands on what the system told. False, with the failure stored, when it does not give it.
    bool drain(std::int64_t now);

private:
    struct Listener {
        Follower* follower;
        const std::string* dir;
    };

    void remove(std::int64_t number, const std::string* dir) noexcept;

    platform::Watcher watcher_;
    std::unordered_multimap<std::int64_t, Listener> listeners_;  // by the number of the watch
};

/// Tells what is taken up of one source, under the registry's exclusive lock.
class ChangeBatch {
public:
    /// `is_tree_new` is set when the source's tree of directories has changed.
    ChangeBatch(CFSSource& source, ztl::vector<SFsChange>& out, bool& is_tree_new);

    /// Tells a change of a name that the source holds at the time of the call, be it for the last time or by what replaces
    /// it. Throws std::bad_alloc, and then nothing is told.
    void add(SFsChange::KIND kind, std::string_view name);
    void add_lost();
    /// Told before the tree changes, so that a change that stays half done is not forgotten.
    void tree_changes() { is_tree_new_ = true; }

private:
    bool is_winner(const std::string& name) noexcept;

    CFSSource& source_;
    ztl::vector<SFsChange>& out_;
    bool& is_tree_new_;
    std::string path_;
    std::string_view prefix_;
};

/// The registered sources of this path, in asking order. With the registry's lock held. Throws StoredFailure where there is
/// none.
std::vector<CFSSource*> sources_of(const fs::path& key);

/// Makes the registered sources of this path follow the disk, or ends that. False, with the failure stored, as fs::watch
/// says. Throws.
bool watch_source(const fs::path& key, bool on);
/// Ends every watch, before the sources go.
void stop_watching();

}  // namespace fs

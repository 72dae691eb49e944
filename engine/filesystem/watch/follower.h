#pragma once

#include <cstdint>
#include <string>

#include "engine/platform/watcher.h"

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

}  // namespace fs

#pragma once

#include <cstdint>
#include <functional>
#include <memory>

namespace fs {

class Follower;

/// What a source over the disk can do beyond the operations that every source has: follow the changes that others make
/// there. A source class of the library derives from it besides CFSSource; who needs it asks with dynamic_cast.
class FollowedSource {
public:
    /// Who follows the disk for this source; null when nobody can. It touches the source under the registry's lock alone.
    virtual std::unique_ptr<Follower> make_follower() = 0;
    /// Reads the source anew beside what it has, without the registry's lock. What takes it up, which is called under the
    /// exclusive lock; empty, with fs::last_error set, when it cannot be read.
    virtual std::function<void()> read_anew() = 0;
    /// The tree of directories of a followed source has changed, perhaps of this one. Called under the registry's exclusive
    /// lock. Throws std::bad_alloc, and is then called again.
    virtual void follow_tree() {}
    /// What no other source ever has, so that a source is known again after its place in memory was given to another.
    std::uint64_t serial() const { return serial_; }

protected:
    FollowedSource();
    FollowedSource(const FollowedSource&) = delete;
    FollowedSource& operator=(const FollowedSource&) = delete;
    ~FollowedSource() = default;

private:
    std::uint64_t serial_;
};

}  // namespace fs

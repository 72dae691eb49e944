#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>

namespace platform {

/// One thing that the system told of a watched directory.
struct WatchEvent {
    enum class Kind : std::uint8_t {
        CREATED,  // a new name
        ARRIVED,  // moved here, perhaps onto a name that was there
        CHANGED,  // content was written; never told of a directory
        REMOVED,  // deleted, or moved away
        RIGHTS,   // of a directory in it: what may be listed may be another
        GONE,     // the watched directory itself was deleted, moved or unmounted
        DROPPED   // events were dropped; of every watch when `watch` is -1
    };
    std::int64_t watch = -1;
    Kind kind = Kind::DROPPED;
    bool is_directory = false;  // surely one; false also where the system does not tell
    std::string_view name;  // below the watched directory, "/"-separated, as the disk spells it; good during the visit
};

/// The system's notes of changes in directories: one inotify instance, or ReadDirectoryChangesW on each directory.
/// Threads  one at a time.
class Watcher {
public:
    static const bool sees_below;  // one watch tells of everything below its directory

    Watcher();
    Watcher(const Watcher&) = delete;
    Watcher& operator=(const Watcher&) = delete;
    ~Watcher();

    /// Begins to watch a directory ("" is the current one), whose own end is told with `tells_gone`. Its number, which is
    /// that of an earlier watch of the same directory where there is one; -1 when it cannot be watched, and last_error()
    /// and limit() say why.
    std::int64_t add(const char* directory, bool tells_gone);
    void remove(std::int64_t watch);
    /// Hands on what was told since the last call, without waiting. `visit` throws nothing. False, with the failure
    /// recorded, when the system does not give it.
    bool drain(const std::function<void(const WatchEvent&)>& visit);
    /// The system's name of the limit that the latest failed add has met; "" when it was none.
    const char* limit() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace platform

#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>

#include "engine/filesystem/watch/follower.h"
#include "engine/platform/watcher.h"

namespace fs {

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

}  // namespace fs

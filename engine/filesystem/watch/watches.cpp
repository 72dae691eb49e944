#include "engine/filesystem/watch/watches.h"

#include <algorithm>

#include "engine/filesystem/contract/set_error.h"

namespace fs {

std::int64_t Watches::add(const char* directory, bool tells_gone, Follower& follower, const std::string& dir) {
    const std::int64_t watch = watcher_.add(directory, tells_gone);
    if (watch < 0) {
        const std::string limit = watcher_.limit();
        if (limit.empty()) {
            refuse_by_disk(directory, "cannot be watched");
        } else {
            const std::string text =
                "The directory cannot be watched: the limit " + limit + " of the system is reached.";
            const platform::Error& error = platform::last_error();
            set_error(error_from_platform(error.failure), directory, text, error.os_code);
        }
        return -1;
    }
    const auto [first, last] = listeners_.equal_range(watch);
    const bool is_known = std::any_of(first, last, [&](const auto& listener) {
        return listener.second.follower == &follower && listener.second.dir == &dir;
    });
    try {
        if (!is_known) listeners_.emplace(watch, Listener{&follower, &dir});
    } catch (...) {
        if (first == last) watcher_.remove(watch);
        throw;
    }
    return watch;
}

void Watches::remove(std::int64_t watch, const Follower& follower, const std::string& dir) noexcept {
    const auto [first, last] = listeners_.equal_range(watch);
    const auto found = std::find_if(first, last, [&](const auto& listener) {
        return listener.second.follower == &follower && listener.second.dir == &dir;
    });
    if (found == last) return;
    listeners_.erase(found);
    if (!listeners_.contains(watch)) watcher_.remove(watch);
}

bool Watches::drain(std::int64_t now) {
    const bool is_drained = watcher_.drain([&](const platform::WatchEvent& event) {
        const bool is_for_all = event.watch < 0;
        const auto [first, last] = listeners_.equal_range(event.watch);
        for (auto at = is_for_all ? listeners_.begin() : first; at != (is_for_all ? listeners_.end() : last); ++at) {
            at->second.follower->note(*at->second.dir, event, now);
        }
    });
    return is_drained || refuse(EFSError::IO, nullptr, "The system gave no word of what has changed.");
}

}  // namespace fs

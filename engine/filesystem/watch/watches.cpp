#include "engine/filesystem/watch/watches.h"

#include <algorithm>

#include "engine/filesystem/contract/error.h"

namespace fs {

Watches::Watch Watches::add(const char* directory, bool tells_gone, Follower& follower, const std::string& dir) {
    const std::int64_t number = watcher_.add(directory, tells_gone);
    if (number < 0) {
        const platform::Error& error = platform::last_error();
        const std::string limit = watcher_.limit();
        const std::string text = "The directory cannot be watched: the limit " + limit + " of the system is reached.";
        if (limit.empty())
            refuse_by_disk(directory, "cannot be watched");
        else
            set_error(error_from_platform(error.failure), directory, text, error.os_code);
        return nullptr;
    }
    try {
        listeners_.emplace(number, Listener{&follower, &dir});
    } catch (...) {
        if (!listeners_.contains(number)) watcher_.remove(number);
        throw;
    }
    return Watch(&dir, End{this, number});
}

void Watches::remove(std::int64_t number, const std::string* dir) noexcept {
    const auto [first, last] = listeners_.equal_range(number);
    listeners_.erase(std::find_if(first, last, [&](const auto& listener) { return listener.second.dir == dir; }));
    if (!listeners_.contains(number)) watcher_.remove(number);
}

bool Watches::drain(std::int64_t now) {
    const bool is_drained = watcher_.drain([&](const platform::WatchEvent& event) {
        const auto [first, last] =
            event.watch < 0 ? std::pair(listeners_.begin(), listeners_.end()) : listeners_.equal_range(event.watch);
        for (auto at = first; at != last; ++at) at->second.follower->note(*at->second.dir, event, now);
    });
    return is_drained || refuse(EFSError::IO, nullptr, "The system gave no word of what has changed.");
}

}  // namespace fs

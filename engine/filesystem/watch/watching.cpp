#include "engine/filesystem/watch/watching.h"

#include <algorithm>
#include <chrono>
#include <iterator>
#include <utility>

#include <engine/filesystem/contract/followed_source.h>

#include "engine/filesystem/contract/failure.h"
#include "engine/filesystem/contract/path_text.h"
#include "engine/filesystem/registry/holders.h"
#include "engine/filesystem/registry/registry.h"
#include "engine/platform/threads.h"

// A poll has three steps. It hears what the system tells, which only marks names; it asks the disk what became of those
// that are due, without the registry's lock; and it brings the tables to that under one exclusive lock. What changes between
// the second and the third step is told by the system once more, so that the next poll mends it.
//
// A source is pinned while it is asked without the lock. One that was removed is found missing by its serial number, and
// its watches end there and then.

namespace fs {

namespace {

struct Followed {
    std::uint64_t serial;
    std::unique_ptr<Follower> follower;
};

struct Watching {
    platform::Mutex lock;              // guards all of this; taken before the registry's
    std::unique_ptr<Watches> watches;  // while something is followed
    std::vector<Followed> followed;
    bool is_tree_new = false;  // directories came or went, and not all who show them know

    auto find(std::uint64_t serial) {
        return std::find_if(followed.begin(), followed.end(),
                            [&](const Followed& each) { return each.serial == serial; });
    }
    void drop_idle_watches() {
        if (followed.empty()) watches.reset();
    }
};

Watching& watching() { return platform::never_destroyed<Watching>(); }

/// A thread that holds the registry's lock may not wait for one that polls.
void check_thread() {
    if (!registry::this_thread_holds_lock()) return;
    set_error(EFSError::INVALID_ARGUMENT, nullptr, "A source or callback that is being asked may not watch or poll.");
    throw StoredFailure();
}

/// A followed source that is registered, in a poll.
struct Turn {
    CFSSource* source;
    FollowedSource* followed;
    Follower* follower;
    registry::Pin pin;

    const char* path() const { return source->path().PathName(); }
};

/// Those that are followed and still registered, in asking order; the others end.
std::vector<Turn> take_turns(Watching& all) {
    std::vector<Turn> turns;
    turns.reserve(all.followed.size());
    const registry::SharedGuard guard;
    registry::for_each_source([&](CFSSource& source) {
        auto* const asked = dynamic_cast<FollowedSource*>(&source);
        const auto found = asked != nullptr ? all.find(asked->serial()) : all.followed.end();
        if (found != all.followed.end())
            turns.push_back({&source, asked, found->follower.get(), registry::Pin(source)});
    });
    std::erase_if(all.followed, [&](const Followed& each) {
        return std::none_of(turns.begin(), turns.end(),
                            [&](const Turn& turn) { return turn.follower == each.follower.get(); });
    });
    return turns;
}

/// False, with the failure stored, when not all of it could be done.
bool take_up(Watching& all, ztl::vector<SFsChange>& out, std::int64_t now, std::int64_t quiet) {
    const std::vector<Turn> turns = take_turns(all);
    bool is_whole = true;
    for (const Turn& turn : turns)
        is_whole &= guarded(turn.path(), false, [&] { return turn.follower->prepare(now, quiet); });
    const auto is_prepared = [](const Turn& turn) { return turn.follower->is_prepared(); };
    if (!all.is_tree_new && std::none_of(turns.begin(), turns.end(), is_prepared)) return is_whole;
    const registry::ExclusiveGuard guard;
    for (const Turn& turn : turns) {
        if (turn.pin.IsSourceGoing() || !turn.follower->is_prepared()) continue;
        is_whole &= guarded(turn.path(), false, [&] {
            ChangeBatch batch(*turn.source, out, all.is_tree_new);
            turn.follower->apply(batch);
            return true;
        });
    }
    if (!all.is_tree_new) return is_whole;
    for (const Turn& turn : turns) turn.followed->follow_tree();
    const auto is_indexed = [](const Turn& turn) {
        return (turn.source->flags() & FFSAddSourceFlags::INDEX_NAMES) != 0;
    };
    if (std::any_of(turns.begin(), turns.end(), is_indexed)) registry::rebuild_index();
    all.is_tree_new = false;
    return is_whole;
}

}  // namespace

Watches::Watch Watches::add(const char* directory, bool tells_gone, Follower& follower, const std::string& dir) {
    const std::int64_t number = watcher_.add(directory, tells_gone);
    if (number < 0) {
        const platform::Error& error = platform::last_error();
        const std::string limit = watcher_.limit();
        if (limit.empty()) return refuse_by_disk(directory, "cannot be watched"), nullptr;
        set_error(error_from_platform(error.failure), directory,
                  "The directory cannot be watched: the limit " + limit + " of the system is reached.", error.os_code);
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

ChangeBatch::ChangeBatch(CFSSource& source, ztl::vector<SFsChange>& out, bool& is_tree_new)
    : source_(source), out_(out), is_tree_new_(is_tree_new), path_(full_name(source.path())) {
    const auto* const prefixed = dynamic_cast<const registry::PrefixedNames*>(&source);
    if (prefixed != nullptr) prefix_ = prefixed->prefix();
}

void ChangeBatch::add(SFsChange::KIND kind, std::string_view name) {
    SFsChange change{.kind = kind, .name = std::string(prefix_).append(name), .source = path_};
    change.winner_changed = is_winner(change.name);
    out_.push_back(std::move(change));
}

void ChangeBatch::add_lost() {
    out_.push_back({.kind = SFsChange::LOST, .name = {}, .source = path_, .winner_changed = true});
}

/// Whether fs::open of this name answers what the source holds under it. Without memory to find out it may be so.
bool ChangeBatch::is_winner(const std::string& name) noexcept {
    return guarded(nullptr, true, [&] {
        const fs::path whole = lookup_name(name.c_str());
        if (registry::first_holder(whole, registry::Match::AS_SOURCE_DOES) != &source_) return false;
        fs::path held;
        source_.root_path(held, whole);
        return held == whole;
    });
}

std::vector<CFSSource*> sources_of(const fs::path& key) {
    std::vector<CFSSource*> sources;
    registry::for_each_source([&](CFSSource& source) {
        if (source.path() == key && !registry::is_fallback(&source)) sources.push_back(&source);
    });
    if (!sources.empty()) return sources;
    set_error(EFSError::NOT_FOUND, key.PathName(), "No source of this path is registered.");
    throw StoredFailure();
}

bool watch_source(const fs::path& key, bool on) {
    check_thread();
    Watching& all = watching();
    const platform::LockGuard guard(all.lock);
    std::vector<Followed> made;
    std::vector<registry::Pin> pins;
    {
        const registry::SharedGuard shared;
        for (CFSSource* const source : sources_of(key)) {
            auto* const followed = dynamic_cast<FollowedSource*>(source);
            if (followed == nullptr)
                return refuse(EFSError::UNSUPPORTED, key.PathName(), "Only directories and packs can be watched.");
            const auto found = all.find(followed->serial());
            if (found != all.followed.end()) {
                if (!on) all.followed.erase(found);
            } else if (on) {
                made.push_back({followed->serial(), followed->make_follower()});
                pins.emplace_back(*source);
            }
        }
    }
    all.followed.reserve(all.followed.size() + made.size());
    if (all.watches == nullptr && !made.empty()) all.watches = std::make_unique<Watches>();
    const bool is_whole = std::all_of(made.begin(), made.end(), [&](const Followed& each) {
        if (each.follower == nullptr)
            return refuse(EFSError::UNSUPPORTED, key.PathName(), "What is mounted here cannot be watched.");
        return guarded(key.PathName(), false, [&] { return each.follower->begin(*all.watches); });
    });
    if (is_whole) std::move(made.begin(), made.end(), std::back_inserter(all.followed));
    made.clear();
    all.drop_idle_watches();
    return is_whole;
}

void stop_watching() {
    Watching& all = watching();
    const platform::LockGuard guard(all.lock);
    all.followed.clear();
    all.watches.reset();
    all.is_tree_new = false;
}

bool poll_changes(ztl::vector<SFsChange>& out, std::uint32_t quiet_ms) {
    out.clear();
    return guarded(nullptr, false, [&] {
        check_thread();
        Watching& all = watching();
        const platform::LockGuard guard(all.lock);
        if (all.watches == nullptr) return true;
        const auto time = std::chrono::steady_clock::now().time_since_epoch();
        const std::int64_t now = std::chrono::duration_cast<std::chrono::milliseconds>(time).count();
        const bool is_drained = all.watches->drain(now);
        const bool is_marked = std::any_of(all.followed.begin(), all.followed.end(),
                                           [](const Followed& each) { return each.follower->is_marked(); });
        if (!is_marked && !all.is_tree_new) return is_drained;
        const bool is_whole = take_up(all, out, now, quiet_ms);
        all.drop_idle_watches();
        return is_whole && is_drained;
    });
}

}  // namespace fs

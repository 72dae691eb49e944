#include "engine/filesystem/watch/watching.h"

#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <engine/filesystem/contract/followed_source.h>
#include <engine/filesystem/watch.h>

#include "engine/filesystem/contract/guarded.h"
#include "engine/filesystem/contract/lookup_name.h"
#include "engine/filesystem/registry/holders.h"
#include "engine/filesystem/registry/prefixed_names.h"
#include "engine/filesystem/registry/registry.h"
#include "engine/filesystem/watch/follower.h"
#include "engine/filesystem/watch/watches.h"
#include "engine/platform/lock.h"
#include "engine/platform/never_destroyed.h"

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
    bool is_index_stale = false;

    void drop_idle_watches() {
        if (followed.empty()) watches.reset();
    }
};

Watching& watching() {
    static platform::NeverDestroyed<Watching> instance;
    return instance.value;
}

/// A thread that holds the registry's lock may not wait for one that polls.
void check_thread() {
    if (!registry::this_thread_holds_lock()) return;
    set_error(EFSError::INVALID_ARGUMENT, nullptr, "A source or callback that is being asked may not watch or poll.");
    throw StoredFailure();
}

std::int64_t milliseconds_now() {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

/// The followed source of a path; null, with the failure stored, when there is none.
FollowedSource* find_source(const fs::path& key, CFSSource*& source) {
    source = registry::find(key);
    if (source == nullptr) {
        set_error(EFSError::NOT_FOUND, key.PathName(), "No source of this path is registered.");
        return nullptr;
    }
    auto* const followed = dynamic_cast<FollowedSource*>(source);
    if (followed == nullptr)
        set_error(EFSError::UNSUPPORTED, key.PathName(), "Only directories and packs can be watched.");
    return followed;
}

/// Tells the changes of one source.
class Batch final : public ChangeBatch {
public:
    Batch(CFSSource& source, ztl::vector<SFsChange>& out) : source_(source), out_(out) {
        path_.append(source.path().PathNameView()).append(source.path().FileNameView());
        const auto* const prefixed = dynamic_cast<const registry::PrefixedNames*>(&source);
        if (prefixed != nullptr) prefix_ = prefixed->prefix();
    }

    bool is_winner(std::string_view name) override {
        const fs::path whole = lookup_name(with_prefix(name).c_str());
        if (registry::first_holder(whole, registry::Match::AS_SOURCE_DOES) != &source_) return false;
        fs::path held;
        source_.root_path(held, whole);
        return held == whole;
    }
    SFsChange& add(SFsChange::KIND kind, std::string_view name) override {
        out_.push_back({.kind = kind,
                        .name = kind == SFsChange::LOST ? std::string() : with_prefix(name),
                        .source = path_,
                        .winner_changed = true});
        return out_.back();
    }
    void take_back() noexcept override { out_.pop_back(); }
    void tree_changed() override { has_new_tree_ = true; }
    bool has_new_tree() const { return has_new_tree_; }

private:
    std::string with_prefix(std::string_view name) const { return std::string(prefix_).append(name); }

    CFSSource& source_;
    ztl::vector<SFsChange>& out_;
    std::string path_;
    std::string_view prefix_;
    bool has_new_tree_ = false;
};

/// A followed source that is registered, in a poll.
struct Turn {
    CFSSource* source;
    Follower* follower;
    registry::Pin pin;
};

/// Those that are followed and still registered, in asking order; the others end.
std::vector<Turn> take_turns(Watching& all) {
    std::vector<Turn> turns;
    turns.reserve(all.followed.size());
    const registry::SharedGuard guard;
    registry::for_each_source([&](CFSSource& source) {
        const auto* const asked = dynamic_cast<const FollowedSource*>(&source);
        if (asked == nullptr) return;
        for (const Followed& followed : all.followed) {
            if (followed.serial == asked->serial())
                turns.push_back({&source, followed.follower.get(), registry::Pin(source)});
        }
    });
    std::erase_if(all.followed, [&](const Followed& followed) {
        return std::none_of(turns.begin(), turns.end(),
                            [&](const Turn& turn) { return turn.follower == followed.follower.get(); });
    });
    return turns;
}

/// False, with the failure stored, when not all of it could be done.
bool apply(const Turn& turn, ztl::vector<SFsChange>& out, bool& is_index_stale) {
    if (turn.pin.IsSourceGoing() || !turn.follower->is_prepared()) return true;
    return guarded(turn.source->path().PathName(), false, [&] {
        Batch batch(*turn.source, out);
        const bool is_applied = guarded(turn.source->path().PathName(), false, [&] {
            turn.follower->apply(batch);
            return true;
        });
        if (!batch.has_new_tree()) return is_applied;
        dynamic_cast<FollowedSource&>(*turn.source).follow_tree();
        is_index_stale |= (turn.source->flags() & FFSAddSourceFlags::INDEX_NAMES) != 0;
        return is_applied;
    });
}

bool take_up(Watching& all, ztl::vector<SFsChange>& out, std::int64_t now, std::int64_t quiet) {
    const std::vector<Turn> turns = take_turns(all);
    bool is_whole = true;
    for (const Turn& turn : turns) {
        is_whole &= guarded(turn.source->path().PathName(), false, [&] { return turn.follower->prepare(now, quiet); });
    }
    const bool is_prepared =
        std::any_of(turns.begin(), turns.end(), [](const Turn& turn) { return turn.follower->is_prepared(); });
    if (!is_prepared && !all.is_index_stale) return is_whole;
    const registry::ExclusiveGuard guard;
    for (const Turn& turn : turns) is_whole &= apply(turn, out, all.is_index_stale);
    if (all.is_index_stale) registry::rebuild_index();
    all.is_index_stale = false;
    return is_whole;
}

}  // namespace

bool watch_source(const fs::path& key) {
    check_thread();
    Watching& all = watching();
    const platform::LockGuard guard(all.lock);
    Followed made{};
    registry::Pin pin;
    {
        const registry::SharedGuard shared;
        CFSSource* source = nullptr;
        FollowedSource* const followed = find_source(key, source);
        if (followed == nullptr) return false;
        made.serial = followed->serial();
        const auto is_same = [&](const Followed& other) { return other.serial == made.serial; };
        if (std::any_of(all.followed.begin(), all.followed.end(), is_same)) return true;
        made.follower = followed->make_follower();
        if (made.follower == nullptr)
            return refuse(EFSError::UNSUPPORTED, key.PathName(), "What is mounted here cannot be watched.");
        pin = registry::Pin(*source);
    }
    all.followed.reserve(all.followed.size() + 1);
    if (all.watches == nullptr) all.watches = std::make_unique<Watches>();
    const bool begun = guarded(key.PathName(), false, [&] { return made.follower->begin(*all.watches); });
    if (begun) {
        all.followed.push_back(std::move(made));
        return true;
    }
    made.follower.reset();
    all.drop_idle_watches();
    return false;
}

bool unwatch_source(const fs::path& key) {
    check_thread();
    Watching& all = watching();
    const platform::LockGuard guard(all.lock);
    const registry::SharedGuard shared;
    CFSSource* source = nullptr;
    FollowedSource* const followed = find_source(key, source);
    if (followed == nullptr) return false;
    std::erase_if(all.followed, [&](const Followed& other) { return other.serial == followed->serial(); });
    all.drop_idle_watches();
    return true;
}

void stop_watching() {
    Watching& all = watching();
    const platform::LockGuard guard(all.lock);
    all.followed.clear();
    all.watches.reset();
    all.is_index_stale = false;
}

bool poll_changes(ztl::vector<SFsChange>& out, std::uint32_t quiet_ms) {
    out.clear();
    return guarded(nullptr, false, [&] {
        check_thread();
        Watching& all = watching();
        const platform::LockGuard guard(all.lock);
        if (all.watches == nullptr) return true;
        const std::int64_t now = milliseconds_now();
        const bool is_drained = all.watches->drain(now);
        const bool is_marked = std::any_of(all.followed.begin(), all.followed.end(),
                                           [](const Followed& each) { return each.follower->is_marked(); });
        if (!is_marked && !all.is_index_stale) return is_drained;
        const bool is_whole = take_up(all, out, now, quiet_ms);
        all.drop_idle_watches();
        return is_whole && is_drained;
    });
}

}  // namespace fs

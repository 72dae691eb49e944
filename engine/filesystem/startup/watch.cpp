#include <engine/filesystem/watch.h>

#include <functional>

#include <engine/filesystem/contract/followed_source.h>

#include "engine/filesystem/contract/disk_use.h"
#include "engine/filesystem/contract/guarded.h"
#include "engine/filesystem/registry/registry.h"
#include "engine/filesystem/startup/prepared_path.h"
#include "engine/filesystem/watch/watching.h"

// Watching and reading anew by path. Polls are in the room of the watches.

namespace fs {

namespace {

fs::path key_of(const char* path) {
    const PreparedPath prepared(path);
    if (prepared.is_full()) return prepared.as_source_path();
    set_error(EFSError::INVALID_NAME, path, "The path is no full path, or longer than 259 bytes.");
    throw StoredFailure();
}

/// What reads the source anew under the exclusive lock; `pin` keeps it until then. Empty, with the failure stored, when
/// there is no such source or it cannot be read.
std::function<void()> read_anew(const fs::path& key, registry::Pin& pin) {
    CFSSource* source = nullptr;
    {
        const registry::SharedGuard guard;
        source = registry::find(key);
        if (source != nullptr) pin = registry::Pin(*source);
    }
    if (source == nullptr) {
        refuse(EFSError::NOT_FOUND, key.PathName(), "No source of this path is registered.");
        return {};
    }
    if (auto* const followed = dynamic_cast<FollowedSource*>(source)) return followed->read_anew();
    return [source] { source->refresh(); };
}

}  // namespace

bool watch(const char* source_path, bool on) {
    const DiskUse use("watched", source_path);
    return guarded(source_path, false, [&] { return watch_source(key_of(source_path), on); });
}

bool reload_source(const char* source_path) {
    const DiskUse use("read", source_path);
    return guarded(source_path, false, [&] {
        registry::Pin pin;
        const std::function<void()> take_up = read_anew(key_of(source_path), pin);
        if (!take_up) return false;
        const registry::ExclusiveGuard guard;
        const ErrorScope scope;
        take_up();
        registry::rebuild_index();
        return !scope.has_error();
    });
}

}  // namespace fs

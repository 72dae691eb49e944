#include <engine/filesystem/watch.h>

#include <functional>
#include <vector>

#include <engine/filesystem/contract/followed_source.h>

#include "engine/filesystem/contract/disk_use.h"
#include "engine/filesystem/contract/error.h"
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

/// What reads a source anew under the exclusive lock; empty, with the failure stored, when it cannot be read.
std::function<void()> read_anew(CFSSource& source) {
    if (auto* const followed = dynamic_cast<FollowedSource*>(&source)) return followed->read_anew();
    return [&source] { source.refresh(); };
}

}  // namespace

bool watch(const char* source_path, bool on) {
    const DiskUse use("watched", source_path);
    return guarded(source_path, false, [&] { return watch_source(key_of(source_path), on); });
}

bool reload_source(const char* source_path) {
    const DiskUse use("read", source_path);
    return guarded(source_path, false, [&] {
        std::vector<CFSSource*> sources;
        std::vector<registry::Pin> pins;
        {
            const registry::SharedGuard guard;
            sources = sources_of(key_of(source_path));
            for (CFSSource* const source : sources) pins.emplace_back(*source);
        }
        std::vector<std::function<void()>> read;
        for (CFSSource* const source : sources) {
            read.push_back(read_anew(*source));
            if (!read.back()) return false;
        }
        const registry::ExclusiveGuard guard;
        const ErrorScope scope;
        for (const std::function<void()>& take_up : read) take_up();
        registry::rebuild_index();
        return !scope.has_error();
    });
}

}  // namespace fs

#pragma once

#include <utility>

#include <engine/filesystem/contract/source.h>

#include "engine/filesystem/contract/set_error.h"
#include "engine/filesystem/registry/registry.h"

namespace fs {

/// Tells the thread's failure that no source holds `path`.
inline void set_not_held(const char* path) {
    set_error(EFSError::NOT_FOUND, path, "No source holds a file of this name.");
}

/// What `use(source, name)` answers for the first source, in asking order, that holds `path`; `missing`, with the
/// thread's failure set, when none does. `use` runs under the registry lock, held as `Hold` does.
template <typename Hold, typename Result, typename Use>
Result with_holder(const char* path, Result missing, Use use) {
    registry::State& state = registry::state();
    const fs::path name(path, true);
    if (!name.Empty()) {
        const Hold hold(state);
        CFSSource* const holder = registry::first_source(state, [&](CFSSource& source) { return source.exists(name); });
        if (holder != nullptr) return use(*holder, name);
    }
    set_not_held(path);
    return missing;
}

}  // namespace fs

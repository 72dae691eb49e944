#pragma once

#include <vector>

#include <engine/filesystem/contract/path.h>
#include <engine/filesystem/contract/source.h>

namespace fs {

/// The registered sources of this path, in asking order. With the registry's lock held. Throws StoredFailure where there is
/// none.
std::vector<CFSSource*> sources_of(const fs::path& key);

/// Makes the registered sources of this path follow the disk, or ends that. False, with the failure stored, as fs::watch
/// says. Throws.
bool watch_source(const fs::path& key, bool on);
/// Ends every watch, before the sources go.
void stop_watching();

}  // namespace fs
